#include "sysinfo/TextMap.h"

#include <gtest/gtest.h>

#include "sysinfo/ComponentStatusPrinter.h"

namespace {

ComponentStatus Status(ComponentStatusValue v, const char* text) { return {v, text}; }

TEST(TextMapTest, EveryMapHoldsItsRowsAndNoneOutsideTheStatusRange) {
  TextMap maps;
  EXPECT_EQ(maps.fanStatusMap.size(), 7u);
  EXPECT_EQ(maps.fanTypeMap.size(), 6u);
  EXPECT_EQ(maps.tempSensorStatusMap.size(), 7u);
  EXPECT_EQ(maps.tempSensorTypeMap.size(), 6u);
  EXPECT_EQ(maps.powerSupplyStatusMap.size(), 12u);
  EXPECT_EQ(maps.raidAdapterStatusMap.size(), 4u);
  EXPECT_EQ(maps.raidPhysicalDriveStatusMap.size(), 16u);
  EXPECT_EQ(maps.raidPhysicalDriveSmartStatusMap.size(), 3u);
  EXPECT_EQ(maps.raidPhysicalDriveInterfaceMap.size(), 17u);
  EXPECT_EQ(maps.raidPhysicalDriveFailureMap.size(), 3u);
  EXPECT_EQ(maps.raidLogicalDriveStatusMap.size(), 6u);
  EXPECT_EQ(maps.drvMonComponentStatusMap.size(), 6u);
  EXPECT_EQ(maps.voltageStatusMap.size(), 6u);
  EXPECT_EQ(maps.memoryModuleStatusMap.size(), 10u);
  EXPECT_EQ(maps.processorStatusMap.size(), 7u);
  EXPECT_EQ(maps.pciSlotStatusMap.size(), 8u);
  EXPECT_EQ(maps.raidStatusMap.size(), 4u);

  for (const TextMap::StatusMap* m :
       {&maps.fanStatusMap, &maps.tempSensorStatusMap, &maps.powerSupplyStatusMap,
        &maps.raidAdapterStatusMap, &maps.raidPhysicalDriveStatusMap,
        &maps.raidPhysicalDriveFailureMap, &maps.raidLogicalDriveStatusMap,
        &maps.drvMonComponentStatusMap, &maps.voltageStatusMap, &maps.memoryModuleStatusMap,
        &maps.processorStatusMap, &maps.pciSlotStatusMap, &maps.raidStatusMap}) {
    for (const auto& [code, status] : *m) {
      EXPECT_LE(status.value, STATUS_SHIELDED) << "code " << code;
      EXPECT_FALSE(status.text.empty()) << "code " << code;
    }
  }
}

TEST(TextMapTest, IrregularRowsKeepTheirOddities) {
  TextMap maps;
  // Temperature code 2 is missing on purpose; 6 and 7 repeat 1 and 4.
  EXPECT_EQ(TextMap::lookup(maps.tempSensorStatusMap, 2), ComponentStatus());
  EXPECT_EQ(TextMap::lookup(maps.tempSensorStatusMap, 6), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(TextMap::lookup(maps.tempSensorStatusMap, 7), Status(STATUS_WARNING, "Warning"));
  // PCI 128 is "OK" drawn as a warning; 129 is not known.
  EXPECT_EQ(TextMap::lookup(maps.pciSlotStatusMap, 128), Status(STATUS_WARNING, "OK"));
  EXPECT_EQ(TextMap::lookup(maps.pciSlotStatusMap, 129), ComponentStatus());
  EXPECT_EQ(TextMap::lookup(maps.pciSlotStatusMap, 0), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(TextMap::lookup(maps.raidAdapterStatusMap, 255), Status(STATUS_ERROR, "Unknow"));
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveStatusMap, 14),
            Status(STATUS_SHIELDED, "Shielded"));
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveStatusMap, 255), Status(STATUS_UNKNOWN, "Unknown"));
  EXPECT_EQ(TextMap::lookup(maps.raidStatusMap, 0), Status(STATUS_UNKNOWN, "Unknown"));
  EXPECT_EQ(TextMap::lookup(maps.powerSupplyStatusMap, 10), Status(STATUS_WARNING, "AC Failure"));
  EXPECT_EQ(TextMap::lookup(maps.powerSupplyStatusMap, 2), Status(STATUS_ERROR, "Present and failed"));
  EXPECT_EQ(TextMap::lookup(maps.fanStatusMap, 0), Status(STATUS_NOT_PRESENT, "Disabled"));
  EXPECT_EQ(TextMap::lookup(maps.memoryModuleStatusMap, 9), Status(STATUS_NORMAL, "Hidden"));
  EXPECT_EQ(TextMap::lookup(maps.processorStatusMap, 5), Status(STATUS_WARNING, "Not Terminated"));
  EXPECT_EQ(TextMap::lookup(maps.voltageStatusMap, 3), Status(STATUS_WARNING, "Too High"));
  EXPECT_EQ(TextMap::lookup(maps.drvMonComponentStatusMap, 3), Status(STATUS_ERROR, "Critical"));
  EXPECT_EQ(TextMap::lookup(maps.raidLogicalDriveStatusMap, 4), Status(STATUS_WARNING, "Impacted"));
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveFailureMap, 255),
            Status(STATUS_UNKNOWN, "Status unknown"));

  EXPECT_EQ(TextMap::lookup(maps.fanTypeMap, 1), "CPU on-chip");
  EXPECT_EQ(TextMap::lookup(maps.tempSensorTypeMap, 5), "Power Plane Sensor");
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveSmartStatusMap, 255), "S.M.A.R.T. status unknown");
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveInterfaceMap, 3), "Firewire IEEE 1394");
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveInterfaceMap, 15), "NVMe");
  EXPECT_EQ(TextMap::lookup(maps.raidPhysicalDriveInterfaceMap, 255), "Unknown");
}

TEST(TextMapTest, UnknownCodesAreRememberedWithTheDefault) {
  TextMap maps;
  EXPECT_EQ(TextMap::lookup(maps.fanStatusMap, 7), ComponentStatus());
  EXPECT_EQ(maps.fanStatusMap.size(), 8u);
  EXPECT_EQ(maps.fanStatusMap.count(7), 1u);
  // Asking again neither grows the map nor changes the answer.
  EXPECT_EQ(TextMap::lookup(maps.fanStatusMap, 7), ComponentStatus());
  EXPECT_EQ(maps.fanStatusMap.size(), 8u);

  EXPECT_EQ(TextMap::lookup(maps.fanTypeMap, 0xFFFFFFFFu), "");
  EXPECT_EQ(maps.fanTypeMap.size(), 7u);
  EXPECT_EQ(maps.fanTypeMap.count(0xFFFFFFFFu), 1u);

  // A known code leaves the map as it is, and the answer is a copy.
  ComponentStatus ok = TextMap::lookup(maps.fanStatusMap, 1);
  ok.text = "changed";
  EXPECT_EQ(TextMap::lookup(maps.fanStatusMap, 1), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(maps.fanStatusMap.size(), 8u);
}

TEST(TextMapTest, RefillingRestoresRowsButKeepsRememberedCodes) {
  TextMap maps;
  maps.voltageStatusMap[1] = Status(STATUS_ERROR, "tampered");
  TextMap::lookup(maps.voltageStatusMap, 42);
  maps.initializeMaps();
  EXPECT_EQ(TextMap::lookup(maps.voltageStatusMap, 1), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(maps.voltageStatusMap.size(), 7u);
}

}  // namespace
