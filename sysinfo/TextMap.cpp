#include "sysinfo/TextMap.h"

namespace {

constexpr ComponentStatusValue kUnknown = STATUS_UNKNOWN;
constexpr ComponentStatusValue kNormal = STATUS_NORMAL;
constexpr ComponentStatusValue kWarning = STATUS_WARNING;
constexpr ComponentStatusValue kError = STATUS_ERROR;
constexpr ComponentStatusValue kNotPresent = STATUS_NOT_PRESENT;
constexpr ComponentStatusValue kShielded = STATUS_SHIELDED;

}  // namespace

TextMap::TextMap() { initializeMaps(); }

void TextMap::initializeMaps() {
  fanStatusMap[0] = {kNotPresent, "Disabled"};
  fanStatusMap[1] = {kNormal, "OK"};
  fanStatusMap[2] = {kError, "Fail"};
  fanStatusMap[3] = {kWarning, "Pre-Fail"};
  fanStatusMap[4] = {kWarning, "Redundant Fail"};
  fanStatusMap[5] = {kNotPresent, "Not Manageable"};
  fanStatusMap[6] = {kNotPresent, "Not Present"};

  fanTypeMap[0] = "Unknown";
  fanTypeMap[1] = "CPU on-chip";
  fanTypeMap[2] = "Reserved";
  fanTypeMap[3] = "In-house";
  fanTypeMap[4] = "Power supply";
  fanTypeMap[5] = "Component";

  // Code 2 has no row: it reads as the default.
  tempSensorStatusMap[0] = {kNotPresent, "N/A"};
  tempSensorStatusMap[1] = {kNormal, "OK"};
  tempSensorStatusMap[3] = {kError, "Fail"};
  tempSensorStatusMap[4] = {kWarning, "Warning"};
  tempSensorStatusMap[5] = {kError, "Critical"};
  tempSensorStatusMap[6] = {kNormal, "OK"};
  tempSensorStatusMap[7] = {kWarning, "Warning"};

  tempSensorTypeMap[0] = "Unknown Sensor";
  tempSensorTypeMap[1] = "CPU Sensor";
  tempSensorTypeMap[2] = "Ambient Sensor";
  tempSensorTypeMap[3] = "In house Sensor";
  tempSensorTypeMap[4] = "IO board Sensor";
  tempSensorTypeMap[5] = "Power Plane Sensor";

  powerSupplyStatusMap[0] = {kNotPresent, "Not Present"};
  powerSupplyStatusMap[1] = {kNormal, "OK"};
  powerSupplyStatusMap[2] = {kError, "Present and failed"};
  powerSupplyStatusMap[3] = {kWarning, "AC Failure"};
  powerSupplyStatusMap[4] = {kWarning, "DC Failure"};
  powerSupplyStatusMap[5] = {kError, "Temperature Critical"};
  powerSupplyStatusMap[6] = {kNotPresent, "Not Manageable"};
  powerSupplyStatusMap[7] = {kWarning, "Fan Prefailure"};
  powerSupplyStatusMap[8] = {kError, "Fan failure"};
  powerSupplyStatusMap[9] = {kWarning, "Cold Standby"};
  powerSupplyStatusMap[10] = {kWarning, "AC Failure"};
  powerSupplyStatusMap[11] = {kWarning, "DC Failure"};

  // An adapter in an unknown state is shown as an error, with this wording.
  raidAdapterStatusMap[0] = {kNormal, "OK"};
  raidAdapterStatusMap[1] = {kWarning, "Warning"};
  raidAdapterStatusMap[2] = {kError, "Error"};
  raidAdapterStatusMap[255] = {kError, "Unknow"};

  raidPhysicalDriveStatusMap[0] = {kNormal, "Operational"};
  raidPhysicalDriveStatusMap[1] = {kNormal, "Copyback"};
  raidPhysicalDriveStatusMap[2] = {kWarning, "Available but not configured"};
  raidPhysicalDriveStatusMap[3] = {kError, "Unconfigured and failed"};
  raidPhysicalDriveStatusMap[4] = {kWarning, "Dedicated hot spare"};
  raidPhysicalDriveStatusMap[5] = {kWarning, "Global hot spare"};
  raidPhysicalDriveStatusMap[6] = {kWarning, "Rebuilding"};
  raidPhysicalDriveStatusMap[7] = {kWarning, "Rebuild necessary"};
  raidPhysicalDriveStatusMap[8] = {kError, "Rebuild failed"};
  raidPhysicalDriveStatusMap[9] = {kWarning, "JBOD disk"};
  raidPhysicalDriveStatusMap[10] = {kWarning, "Migrating"};
  raidPhysicalDriveStatusMap[11] = {kError, "Failed"};
  raidPhysicalDriveStatusMap[12] = {kError, "Failed (missing)"};
  raidPhysicalDriveStatusMap[13] = {kNotPresent, "Offline"};
  raidPhysicalDriveStatusMap[14] = {kShielded, "Shielded"};
  raidPhysicalDriveStatusMap[255] = {kUnknown, "Unknown"};

  raidPhysicalDriveSmartStatusMap[0] = "S.M.A.R.T. OK";
  raidPhysicalDriveSmartStatusMap[1] = "S.M.A.R.T. Failure";
  raidPhysicalDriveSmartStatusMap[255] = "S.M.A.R.T. status unknown";

  raidPhysicalDriveInterfaceMap[0] = "SCSI";
  raidPhysicalDriveInterfaceMap[1] = "ATAPI";
  raidPhysicalDriveInterfaceMap[2] = "PATA";
  raidPhysicalDriveInterfaceMap[3] = "Firewire IEEE 1394";
  raidPhysicalDriveInterfaceMap[4] = "SSA";
  raidPhysicalDriveInterfaceMap[5] = "Fibre";
  raidPhysicalDriveInterfaceMap[6] = "USB";
  raidPhysicalDriveInterfaceMap[7] = "SATA";
  raidPhysicalDriveInterfaceMap[8] = "SAS";
  raidPhysicalDriveInterfaceMap[9] = "RAID";
  raidPhysicalDriveInterfaceMap[10] = "MMC";
  raidPhysicalDriveInterfaceMap[11] = "SD card bus";
  raidPhysicalDriveInterfaceMap[12] = "AHCI";
  raidPhysicalDriveInterfaceMap[13] = "PCIE";
  raidPhysicalDriveInterfaceMap[14] = "LMD";
  raidPhysicalDriveInterfaceMap[15] = "NVMe";
  raidPhysicalDriveInterfaceMap[255] = "Unknown";

  raidPhysicalDriveFailureMap[0] = {kNormal, "OK"};
  raidPhysicalDriveFailureMap[1] = {kError, "Failure"};
  raidPhysicalDriveFailureMap[255] = {kUnknown, "Status unknown"};

  raidLogicalDriveStatusMap[0] = {kNormal, "Operational"};
  raidLogicalDriveStatusMap[1] = {kWarning, "Degraded"};
  raidLogicalDriveStatusMap[2] = {kWarning, "Partially Degraded"};
  raidLogicalDriveStatusMap[3] = {kError, "Failed"};
  raidLogicalDriveStatusMap[4] = {kWarning, "Impacted"};
  raidLogicalDriveStatusMap[255] = {kUnknown, "Unknown"};

  drvMonComponentStatusMap[0] = {kNotPresent, "N/A"};
  drvMonComponentStatusMap[1] = {kNormal, "OK"};
  drvMonComponentStatusMap[2] = {kWarning, "Warning"};
  drvMonComponentStatusMap[3] = {kError, "Critical"};
  drvMonComponentStatusMap[4] = {kNotPresent, "Not Present"};
  drvMonComponentStatusMap[5] = {kNotPresent, "Not Manageable"};

  voltageStatusMap[0] = {kNotPresent, "N/A"};
  voltageStatusMap[1] = {kNormal, "OK"};
  voltageStatusMap[2] = {kWarning, "Too Low"};
  voltageStatusMap[3] = {kWarning, "Too High"};
  voltageStatusMap[4] = {kError, "Not OK"};
  voltageStatusMap[5] = {kWarning, "Pre-Failure"};

  memoryModuleStatusMap[0] = {kNotPresent, "Empty Slot"};
  memoryModuleStatusMap[1] = {kNormal, "OK"};
  memoryModuleStatusMap[2] = {kNotPresent, "Disabled"};
  memoryModuleStatusMap[3] = {kError, "Error"};
  memoryModuleStatusMap[4] = {kError, "Failure"};
  memoryModuleStatusMap[5] = {kWarning, "Pre-Failure"};
  memoryModuleStatusMap[6] = {kNormal, "Hot Spare"};
  memoryModuleStatusMap[7] = {kNormal, "Mirror"};
  memoryModuleStatusMap[8] = {kNormal, "RAID"};
  memoryModuleStatusMap[9] = {kNormal, "Hidden"};

  processorStatusMap[0] = {kNotPresent, "Empty Socket"};
  processorStatusMap[1] = {kNormal, "OK"};
  processorStatusMap[2] = {kNotPresent, "Disabled"};
  processorStatusMap[3] = {kError, "Error"};
  processorStatusMap[4] = {kError, "Failure"};
  processorStatusMap[5] = {kWarning, "Not Terminated"};
  processorStatusMap[6] = {kWarning, "Pre-Failure"};

  // 128 pairs the word "OK" with the warning colour; 129 has no row.
  pciSlotStatusMap[0] = {kNormal, "OK"};
  pciSlotStatusMap[1] = {kNormal, "OK"};
  pciSlotStatusMap[2] = {kWarning, "Warning"};
  pciSlotStatusMap[3] = {kError, "Critical"};
  pciSlotStatusMap[4] = {kNotPresent, "Empty Slot"};
  pciSlotStatusMap[128] = {kWarning, "OK"};
  pciSlotStatusMap[130] = {kWarning, "Warning"};
  pciSlotStatusMap[131] = {kError, "Critical"};

  raidStatusMap[0] = {kUnknown, "Unknown"};
  raidStatusMap[1] = {kNormal, "OK"};
  raidStatusMap[2] = {kWarning, "Warning"};
  raidStatusMap[3] = {kError, "Error"};
}
