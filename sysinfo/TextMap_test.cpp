#include "sysinfo/TextMap.h"

#include <gtest/gtest.h>

#include "sysinfo/ComponentStatusPrinter.h"

namespace {

using CS = ComponentStatus;

TEST(TextMapTest, EveryStatusMapHoldsItsRowsWithinTheStatusRange) {
  TextMap m;
  const std::pair<const TextMap::StatusMap*, size_t> maps[] = {
      {&m.fanStatusMap, 7},           {&m.tempSensorStatusMap, 7},        {&m.powerSupplyStatusMap, 12},
      {&m.raidAdapterStatusMap, 4},   {&m.raidPhysicalDriveStatusMap, 16}, {&m.raidPhysicalDriveFailureMap, 3},
      {&m.raidLogicalDriveStatusMap, 6}, {&m.drvMonComponentStatusMap, 6}, {&m.voltageStatusMap, 6},
      {&m.memoryModuleStatusMap, 10}, {&m.processorStatusMap, 7},          {&m.pciSlotStatusMap, 8},
      {&m.raidStatusMap, 4}};
  for (const auto& [map, size] : maps) {
    EXPECT_EQ(map->size(), size);
    for (const auto& [code, status] : *map) {
      EXPECT_LE(status.value, STATUS_SHIELDED) << "code " << code;
      EXPECT_FALSE(status.text.empty()) << "code " << code;
    }
  }
}

TEST(TextMapTest, IrregularCodesAndUnknownCodesAreRemembered) {
  TextMap m;
  const struct {
    TextMap::StatusMap* map;
    unsigned code;
    CS expected;
    bool unknown;  // inserted with the default on the first lookup
  } cases[] = {
      {&m.fanStatusMap, 7, CS(), true},
      {&m.tempSensorStatusMap, 2, CS(), true},  // missing on purpose between 1 and 3
      {&m.tempSensorStatusMap, 7, CS(STATUS_WARNING, "Warning"), false},
      {&m.pciSlotStatusMap, 128, CS(STATUS_WARNING, "OK"), false},
      {&m.pciSlotStatusMap, 129, CS(), true},
      {&m.raidPhysicalDriveStatusMap, 14, CS(STATUS_SHIELDED, "Shielded"), false},
      {&m.raidAdapterStatusMap, 255, CS(STATUS_ERROR, "Unknow"), false},
      {&m.raidStatusMap, 0, CS(STATUS_UNKNOWN, "Unknown"), false},
      {&m.powerSupplyStatusMap, 10, CS(STATUS_WARNING, "AC Failure"), false},
      {&m.fanStatusMap, 0, CS(STATUS_NOT_PRESENT, "Disabled"), false},
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
  EXPECT_EQ(TextMap::lookup(m.raidPhysicalDriveSmartStatusMap, 255), "S.M.A.R.T. status unknown");
  EXPECT_EQ(TextMap::lookup(m.fanTypeMap, 0xFFFFFFFFu), "");
  EXPECT_EQ(m.fanTypeMap.count(0xFFFFFFFFu), 1u);

  // The answer is a copy; refilling restores rows but keeps remembered codes.
  CS ok = TextMap::lookup(m.voltageStatusMap, 1);
  ok.text = "changed";
  m.voltageStatusMap[2] = CS(STATUS_ERROR, "tampered");
  TextMap::lookup(m.voltageStatusMap, 42);
  m.initializeMaps();
  EXPECT_EQ(TextMap::lookup(m.voltageStatusMap, 1), CS(STATUS_NORMAL, "OK"));
  EXPECT_EQ(TextMap::lookup(m.voltageStatusMap, 2), CS(STATUS_WARNING, "Too Low"));
  EXPECT_EQ(m.voltageStatusMap.size(), 7u);
}

}  // namespace
