#include "pages/ZentrixHealth.h"

#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

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

struct Row {
  ComponentStatus status;
  std::vector<std::string> cells;
};

// One row per index below `count`. Each `rowAt` asks the agent for the status
// and then the cells in column order: a braced list is evaluated left to
// right, and the agent's request log shows that order.
template <typename RowAt>
TableComponent* withRows(TableComponent* table, uint32_t count, RowAt rowAt) {
  for (uint32_t i = 0; i < count; ++i) {
    Row row = rowAt(i);
    table->addRow(std::move(row.status), std::move(row.cells));
  }
  return table;
}

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
  return withRows(newTable({"Status", "Designation", "Type", "RPM"}), info.getNumberFans(), [&](uint32_t i) {
    return Row{info.getFanStatus(i),
               {info.getFanDesignation(i), info.getFanType(i), unsignedText(info.getCurrentFanSpeed(i))}};
  });
}

TableComponent* ZentrixHealth::renderTemperatureTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Sensor Type", "Temperature (\xC2\xB0" "C)"});
  return withRows(table, info.getNumberTempSensors(), [&](uint32_t i) {
    return Row{info.getTempSensorStatus(i), {info.getTempSensorDesignation(i), info.getTempSensorType(i),
                                             unsignedText(info.getCurrentTemperature(i))}};
  });
}

TableComponent* ZentrixHealth::renderPowerSuppliesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Nominal Power (W)", "Current Power (W)"});
  return withRows(table, info.getNumberPowerSupplies(), [&](uint32_t i) {
    // The row shows the temperature sensor of the same index: that is what
    // the report has always shown for a supply.
    Row row{info.getTempSensorStatus(i), {info.getPowerSupplyDesignation(i)}};
    unsigned int watts = 0;
    row.cells.push_back(info.tryGetPowerSupplyNominalPower(watts, i) ? unsignedText(watts) : "N/A");
    row.cells.push_back(info.tryGetPowerSupplyCurrentPower(watts, i) ? unsignedText(watts) : "N/A");
    return row;
  });
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
  return withRows(newTable({"Status", "ID", "Designation"}), info.getNumberRaidAdapters(), [&](uint32_t a) {
    return Row{info.getRaidAdapterStatus(a), {unsignedText(a), info.getRaidAdapterDesignation(a)}};
  });
}

TableComponent* ZentrixHealth::renderRaidLogicalDrivesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Adapter ID", "Designation", "RAID Level", "Size (GByte)"});
  uint32_t adapters = info.getNumberRaidAdapters();
  for (uint32_t a = 0; a < adapters; ++a) {
    withRows(table, info.getNumberRaidLogicalDrives(a), [&](uint32_t d) {
      return Row{info.getRaidLogicalDriveStatus(a, d),
                 {unsignedText(a), info.getRaidLogicalDriveDesignation(a, d), info.getRaidLogicalDriveLevel(a, d),
                  driveGigabytesText(info.getRaidLogicalDriveSize(a, d))}};
    });
  }
  return table;
}

TableComponent* ZentrixHealth::renderRaidPhysicalDrivesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table =
      newTable({"Status", "Adapter ID", "S.M.A.R.T", "Designation", "Interface", "Size (GByte)"});
  uint32_t adapters = info.getNumberRaidAdapters();
  for (uint32_t a = 0; a < adapters; ++a) {
    withRows(table, info.getNumberRaidPhysicalDrives(a), [&](uint32_t d) {
      return Row{info.getRaidPhysicalDriveStatus(a, d),
                 {unsignedText(a), info.getRaidPhysicalDriveSmartStatus(a, d),
                  info.getRaidPhysicalDriveDesignation(a, d), info.getRaidPhysicalDriveInterface(a, d),
                  driveGigabytesText(info.getRaidPhysicalDriveSize(a, d))}};
    });
  }
  return table;
}

TableComponent* ZentrixHealth::renderVoltagesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Designation", "Current (V)", "Minimum (V)", "Maximum (V)"});
  return withRows(table, info.getNumberVoltages(), [&](uint32_t i) {
    Row row{info.getVoltageStatus(i),
            {info.getVoltageDesignation(i), formatted("%.2f", info.getCurrentVoltage(i) / 100.0)}};
    uint32_t thresholds = info.getVoltageThresholds(i);
    row.cells.insert(row.cells.end(), {lowerThresholdText(thresholds), upperThresholdText(thresholds)});
    return row;
  });
}

TableComponent* ZentrixHealth::renderMemoryModulesTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Socket", "Size (GByte)", "Type"});
  return withRows(table, info.getNumberMemoryModules(), [&](uint32_t i) {
    return Row{info.getMemoryModuleStatus(i), {info.getMemoryModuleSocket(i),
                                               memoryGigabytesText(info.getMemoryModuleSize(i)),
                                               info.getMemoryModuleType(i)}};
  });
}

TableComponent* ZentrixHealth::renderProcessorsTable() {
  SystemInformation& info = m_SystemInformation;
  TableComponent* table = newTable({"Status", "Socket", "Type", "Frequence (GHz)"});
  return withRows(table, info.getNumberProcessors(), [&](uint32_t i) {
    return Row{info.getProcessorStatus(i), {info.getProcessorSocket(i), info.getProcessorType(i),
                                            gigahertzText(info.getProcessorFrequency(i))}};
  });
}

TableComponent* ZentrixHealth::renderPciSlotsTable() {
  SystemInformation& info = m_SystemInformation;
  return withRows(newTable({"Status", "Designation"}), info.getNumberPciSlots(), [&](uint32_t i) {
    return Row{info.getPciSlotStatus(i), {info.getPciSlotDesignation(i)}};
  });
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
