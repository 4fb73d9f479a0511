#include "pages/ZentrixHealth.h"

#include <cstdio>
#include <memory>

#include "pages/PageFrame.h"
#include "html/CollapsibleComposite.h"
#include "pages/SystemEventLog.h"
#include "xml/CMarkup.h"

namespace {

// Agent value id of the RAID management software's version.
constexpr int kRaidSoftwareVersionId = 43523;  // 0xAA03
constexpr unsigned char kMassStorageAdapters = 3;
constexpr unsigned char kNetworkAdapters = 2;

std::string formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

ComponentStatusValue asStatus(uint32_t value) { return static_cast<ComponentStatusValue>(value); }

}  // namespace

ZentrixHealth::ZentrixHealth() {
  setTitle("System Health");
  renderDirectly<ZentrixHealth>();
}

std::string ZentrixHealth::renderContent() { return rendered(*this); }

void ZentrixHealth::appendContent(std::string& html) {
  fillEnvironment();
  fillPowerSupply();
  fillMassStorage();
  fillSystemBoard();
  fillNetwork();
  fillSystemLog();
  openPageFrame(html, getTitle());
  renderChildren(html);
  closePageFrame(html);
}

// ---- cell texts -----------------------------------------------------------

std::string ZentrixHealth::unsignedText(unsigned int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%u", value);
  return text;
}

std::string ZentrixHealth::hundredthsText(int32_t hundredths) { return formatted("%.2f", hundredths / 100.0); }

std::string ZentrixHealth::lowerThresholdText(uint32_t thresholds) {
  return hundredthsText(static_cast<int16_t>(thresholds & 0xFFFFu));
}

std::string ZentrixHealth::upperThresholdText(uint32_t thresholds) {
  return hundredthsText(static_cast<int16_t>(thresholds >> 16));
}

std::string ZentrixHealth::memoryGigabytesText(unsigned int megabytes) {
  // A blank, not "N/A", for a module without a size.
  return megabytes != 0 ? unsignedText(megabytes >> 10) : " ";
}

std::string ZentrixHealth::driveGigabytesText(unsigned int megabytes) { return formatted("%.0f", megabytes / 1000.0); }

std::string ZentrixHealth::gigahertzText(unsigned int megahertz) { return formatted("%.3f", megahertz / 1000.0); }

ComponentStatus ZentrixHealth::raidSoftwareRowStatus(bool installed, const ComponentStatus& raid) {
  ComponentStatus status = installed ? ComponentStatus(STATUS_NORMAL, "Installed")
                                     : ComponentStatus(STATUS_NOT_PRESENT, "Not Installed");
  const char* raidClass = "";
  switch (raid.value) {
    case STATUS_NORMAL: raidClass = "status-normal"; break;
    case STATUS_WARNING: raidClass = "status-warning"; break;
    case STATUS_ERROR: raidClass = "status-error"; break;
    case STATUS_UNKNOWN: raidClass = "status-not-present"; break;
    default: break;
  }
  // The table closes the injected cell with its own "</td>".
  status.text += "</td>\n<td class=\"" + std::string(raidClass) + " icon status\">" + raid.text;
  return status;
}

// ---- sections -------------------------------------------------------------

TableComponent* ZentrixHealth::newTable(std::initializer_list<const char*> columns) {
  auto* table = new TableComponent();
  for (const char* column : columns) table->addColumn(column);
  return table;
}

HTMLComponent* ZentrixHealth::newSection(const std::string& title, HTMLComponent* content, uint32_t overallStatus) {
  HTMLComponent* section = new CollapsibleComposite();
  section->add(content);
  section->setTitle(title);
  section->setStatus(asStatus(overallStatus));
  return section;
}

void ZentrixHealth::addCategory(const std::string& title, std::initializer_list<HTMLComponent*> subSections,
                                uint32_t overallStatus) {
  HTMLComponent* category = new CollapsibleComposite();
  for (HTMLComponent* subSection : subSections) category->add(subSection);
  category->setTitle(title);
  category->setStatus(asStatus(overallStatus));
  add(category);
}

// Each table is built before its section's overall status is read, and the
// category's status last, so the agent sees the questions in page order.
void ZentrixHealth::fillEnvironment() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = renderCoolingDevicesTable();
  HTMLComponent* cooling = newSection("Cooling Devices", table, info.getCoolingDevicesOverallStatus());
  table = renderTemperatureTable();
  HTMLComponent* temperature = newSection("Temperature", table, info.getTemperatureOverallStatus());
  addCategory("Environment", {cooling, temperature}, info.getEnvironmentOverallStatus());
}

void ZentrixHealth::fillPowerSupply() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = renderPowerSuppliesTable();
  HTMLComponent* units = newSection("Power Supply Units", table, info.getPowerSupplyUnitsOverallStatus());
  addCategory("Power Supply", {units}, info.getPowerSupplyOverallStatus());
}

void ZentrixHealth::fillMassStorage() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = renderDrvMonComponentTable(kMassStorageAdapters);
  HTMLComponent* adapters = newSection("Mass Storage Adapters", table, info.getMassStorageAdapterOverallStatus());
  table = renderOVRaidVersionTable();
  HTMLComponent* raidSystem = newSection("Orvana RAID System", table, info.getRaidOverallStatus());
  table = renderRaidAdaptersTable();
  HTMLComponent* raidAdapters = newSection("RAID Adapters", table, info.getRaidAdapterOverallStatus());
  table = renderRaidLogicalDrivesTable();
  HTMLComponent* logical = newSection("RAID Logical Drives", table, info.getRaidLogicalDrivesOverallStatus());
  table = renderRaidPhysicalDrivesTable();
  HTMLComponent* physical = newSection("RAID Physical Drives", table, info.getRaidPhysicalDrivesOverallStatus());
  addCategory("Mass Storage", {adapters, raidSystem, raidAdapters, logical, physical},
              info.getMassStorageOverallStatus());
}

void ZentrixHealth::fillSystemBoard() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = renderVoltagesTable();
  HTMLComponent* voltages = newSection("Voltages", table, info.getVoltagesOverallStatus());
  table = renderMemoryModulesTable();
  HTMLComponent* memory = newSection("Memory Modules", table, info.getMemoryModulesOverallStatus());
  table = renderProcessorsTable();
  HTMLComponent* processors = newSection("System Processors", table, info.getSystemProcessorsOverallStatus());
  table = renderPciSlotsTable();
  HTMLComponent* pciSlots = newSection("PCI Slots", table, info.getPciSlotsOverallStatus());
  addCategory("System Board", {voltages, memory, processors, pciSlots}, info.getSystemBoardOverallStatus());
}

void ZentrixHealth::fillNetwork() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = renderDrvMonComponentTable(kNetworkAdapters);
  HTMLComponent* adapters = newSection("Network Adapters", table, info.getNetworkAdaptersOverallStatus());
  addCategory("Network", {adapters}, info.getNetworkOverallStatus());
}

void ZentrixHealth::fillSystemLog() {
  // Built first: a bad severity throws out of here before a section exists.
  TableComponent* table = renderSystemEventLogTable();
  // Always normal, whatever the entries say.
  add(newSection("System Event Log", table, STATUS_NORMAL));
}

// ---- tables ---------------------------------------------------------------

TableComponent* ZentrixHealth::renderCoolingDevicesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Type", "RPM"});
  uint32_t count = info.getNumberFans();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getFanStatus(i);
    std::string designation = info.getFanDesignation(i);
    std::string type = info.getFanType(i);
    std::string speed = unsignedText(info.getCurrentFanSpeed(i));
    table->addRow(status, {designation, type, speed});
  }
  return table;
}

TableComponent* ZentrixHealth::renderTemperatureTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Sensor Type", "Temperature (\xC2\xB0" "C)"});
  uint32_t count = info.getNumberTempSensors();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getTempSensorStatus(i);
    std::string designation = info.getTempSensorDesignation(i);
    std::string type = info.getTempSensorType(i);
    std::string temperature = unsignedText(info.getCurrentTemperature(i));
    table->addRow(status, {designation, type, temperature});
  }
  return table;
}

TableComponent* ZentrixHealth::renderPowerSuppliesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Nominal Power (W)", "Current Power (W)"});
  uint32_t count = info.getNumberPowerSupplies();
  for (uint32_t i = 0; i < count; ++i) {
    // The row shows the temperature sensor of the same index: that is what
    // the report has always shown for a supply.
    ComponentStatus status = info.getTempSensorStatus(i);
    std::string designation = info.getPowerSupplyDesignation(i);
    unsigned int watts = 0;
    std::string nominal = info.tryGetPowerSupplyNominalPower(watts, i) ? unsignedText(watts) : "N/A";
    std::string current = info.tryGetPowerSupplyCurrentPower(watts, i) ? unsignedText(watts) : "N/A";
    table->addRow(status, {designation, nominal, current});
  }
  return table;
}

TableComponent* ZentrixHealth::renderOVRaidVersionTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"OVRM Status", "RAID Status", "OVRMVersion"});
  std::string version = info.getOVRaidSystemVersion(kRaidSoftwareVersionId);
  ComponentStatus raid = info.getRaidStatus();
  // Fresh RAID data for the tables that follow.
  if (raid.value == STATUS_NORMAL) info.updateRaidSnapshot();
  table->addRow(raidSoftwareRowStatus(!version.empty(), raid), {version});
  return table;
}

TableComponent* ZentrixHealth::renderRaidAdaptersTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "ID", "Designation"});
  uint32_t adapters = info.getNumberRaidAdapters();
  for (uint32_t a = 0; a < adapters; ++a) {
    ComponentStatus status = info.getRaidAdapterStatus(a);
    std::string designation = info.getRaidAdapterDesignation(a);
    table->addRow(status, {unsignedText(a), designation});
  }
  return table;
}

TableComponent* ZentrixHealth::renderRaidLogicalDrivesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Adapter ID", "Designation", "RAID Level", "Size (GByte)"});
  uint32_t adapters = info.getNumberRaidAdapters();
  for (uint32_t a = 0; a < adapters; ++a) {
    uint32_t drives = info.getNumberRaidLogicalDrives(a);
    for (uint32_t d = 0; d < drives; ++d) {
      ComponentStatus status = info.getRaidLogicalDriveStatus(a, d);
      std::string designation = info.getRaidLogicalDriveDesignation(a, d);
      std::string level = info.getRaidLogicalDriveLevel(a, d);
      std::string size = driveGigabytesText(info.getRaidLogicalDriveSize(a, d));
      table->addRow(status, {unsignedText(a), designation, level, size});
    }
  }
  return table;
}

TableComponent* ZentrixHealth::renderRaidPhysicalDrivesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table =
      newTable({"Status", "Adapter ID", "S.M.A.R.T", "Designation", "Interface", "Size (GByte)"});
  uint32_t adapters = info.getNumberRaidAdapters();
  for (uint32_t a = 0; a < adapters; ++a) {
    uint32_t drives = info.getNumberRaidPhysicalDrives(a);
    for (uint32_t d = 0; d < drives; ++d) {
      ComponentStatus status = info.getRaidPhysicalDriveStatus(a, d);
      std::string smart = info.getRaidPhysicalDriveSmartStatus(a, d);
      std::string designation = info.getRaidPhysicalDriveDesignation(a, d);
      std::string interface = info.getRaidPhysicalDriveInterface(a, d);
      std::string size = driveGigabytesText(info.getRaidPhysicalDriveSize(a, d));
      table->addRow(status, {unsignedText(a), smart, designation, interface, size});
    }
  }
  return table;
}

TableComponent* ZentrixHealth::renderVoltagesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Current (V)", "Minimum (V)", "Maximum (V)"});
  uint32_t count = info.getNumberVoltages();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getVoltageStatus(i);
    std::string designation = info.getVoltageDesignation(i);
    std::string current = formatted("%.2f", info.getCurrentVoltage(i) / 100.0);
    uint32_t thresholds = info.getVoltageThresholds(i);
    table->addRow(status, {designation, current, lowerThresholdText(thresholds), upperThresholdText(thresholds)});
  }
  return table;
}

TableComponent* ZentrixHealth::renderMemoryModulesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Socket", "Size (GByte)", "Type"});
  uint32_t count = info.getNumberMemoryModules();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getMemoryModuleStatus(i);
    std::string socket = info.getMemoryModuleSocket(i);
    std::string size = memoryGigabytesText(info.getMemoryModuleSize(i));
    std::string type = info.getMemoryModuleType(i);
    table->addRow(status, {socket, size, type});
  }
  return table;
}

TableComponent* ZentrixHealth::renderProcessorsTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Socket", "Type", "Frequence (GHz)"});
  uint32_t count = info.getNumberProcessors();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getProcessorStatus(i);
    std::string socket = info.getProcessorSocket(i);
    std::string type = info.getProcessorType(i);
    std::string frequency = gigahertzText(info.getProcessorFrequency(i));
    table->addRow(status, {socket, type, frequency});
  }
  return table;
}

TableComponent* ZentrixHealth::renderPciSlotsTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation"});
  uint32_t count = info.getNumberPciSlots();
  for (uint32_t i = 0; i < count; ++i) {
    ComponentStatus status = info.getPciSlotStatus(i);
    table->addRow(status, {info.getPciSlotDesignation(i)});
  }
  return table;
}

TableComponent* ZentrixHealth::renderDrvMonComponentTable(unsigned char componentClass) {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Location"});
  for (unsigned int k : info.getDrvMonComponentIndexes(componentClass)) {
    ComponentStatus status = info.getDrvMonComponentStatus(k);
    std::string designation = info.getDrvMonComponentDesignation(k);
    std::string location = info.getDrvMonComponentLocation(k);
    table->addRow(status, {designation, location});
  }
  return table;
}

TableComponent* ZentrixHealth::renderSystemEventLogTable() {
  std::unique_ptr<TableComponent> table(newTable({"Status", "Error Code", "Timestamp", "Message"}));
  CMarkup messages;
  SystemEventLog::loadMessageFile(messages);

  CDataStream block;
  if (m_SystemInformation.tryGetSipStream(block, SystemEventLog::kValueId, 0, 0) && !block.empty()) {
    for (SystemEventLog::Row& row : SystemEventLog::rowsFromBlock(block.data(), block.bytesLeft())) {
      table->addRow(std::move(row.status), std::move(row.cells));
    }
  }
  return table.release();
}
