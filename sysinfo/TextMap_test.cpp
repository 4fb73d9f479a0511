#include "sysinfo/TextMap.h"

#include <gtest/gtest.h>

#include "sysinfo/ComponentStatusPrinter.h"

using CS = ComponentStatus;

// The irregular entries the golden reports show ("Unknow", an "OK" that warns)
// are pinned there.
TEST(TextMapTest, IrregularCodesAndUnknownCodesAreRemembered) {
  TextMap m;
  // An unknown code is inserted with the default on its first lookup.
  const struct { TextMap::StatusMap* map; unsigned code; CS expected; bool unknown; } cases[] = {
      {&m.fanStatusMap, 7, CS(), true}, {&m.pciSlotStatusMap, 129, CS(), true},
      {&m.tempSensorStatusMap, 2, CS(), true},  // missing on purpose between 1 and 3
      {&m.raidPhysicalDriveStatusMap, 14, CS(STATUS_SHIELDED, "Shielded"), false},
      {&m.powerSupplyStatusMap, 10, CS(STATUS_WARNING, "AC Failure"), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    const size_t before = c.map->size();
    // Asked twice: the same answer, and the map grows at most once.
    EXPECT_EQ(TextMap::lookup(*c.map, c.code), c.expected);
    EXPECT_EQ(TextMap::lookup(*c.map, c.code), c.expected);
    EXPECT_EQ(c.map->size(), before + (c.unknown ? 1 : 0));
  }
  EXPECT_EQ(TextMap::lookup(m.raidPhysicalDriveInterfaceMap, 15), "NVMe");
  EXPECT_EQ(TextMap::lookup(m.fanTypeMap, 0xFFFFFFFFu), "");
  EXPECT_EQ(m.fanTypeMap.count(0xFFFFFFFFu), 1u);
}
