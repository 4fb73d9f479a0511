#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "html/HTMLComposite.h"
#include "html/TableComponent.h"
#include "sysinfo/SystemInformation.h"

// The report's second page: one collapsible section per hardware category,
// each with sub-sections holding one status table, and the system event log
// at the end. Section colours are the agent's overall statuses; row colours
// the components' own. Values are read from the agent while the page renders.
class ZentrixHealth : public HTMLComposite {
 public:
  // Attaches to the agent through its own SystemInformation.
  ZentrixHealth();

  std::string renderContent() override;

  void fillEnvironment();
  void fillPowerSupply();
  void fillMassStorage();
  void fillSystemBoard();
  void fillNetwork();
  void fillSystemLog();

  // Each returns a new table that the caller adds to a section.
  TableComponent* renderTemperatureTable();
  TableComponent* renderCoolingDevicesTable();
  TableComponent* renderPowerSuppliesTable();
  TableComponent* renderOVRaidVersionTable();
  TableComponent* renderRaidAdaptersTable();
  TableComponent* renderRaidLogicalDrivesTable();
  TableComponent* renderRaidPhysicalDrivesTable();
  TableComponent* renderVoltagesTable();
  TableComponent* renderMemoryModulesTable();
  TableComponent* renderProcessorsTable();
  TableComponent* renderPciSlotsTable();
  TableComponent* renderDrvMonComponentTable(unsigned char componentClass);
  TableComponent* renderSystemEventLogTable();

  // Cell texts of the readings.
  static std::string unsignedText(unsigned int value);                 // "%u"
  static std::string hundredthsText(int32_t hundredths);               // "12.05"
  static std::string lowerThresholdText(uint32_t thresholds);          // low 16 bits
  static std::string upperThresholdText(uint32_t thresholds);          // high 16 bits
  static std::string memoryGigabytesText(unsigned int megabytes);      // 1024ths, " " for 0
  static std::string driveGigabytesText(unsigned int megabytes);       // 1000ths, rounded
  static std::string gigahertzText(unsigned int megahertz);            // "2.400"
  // The status cell of the RAID software row, with the RAID status cell
  // injected behind it through the row's status text.
  static ComponentStatus raidSoftwareRowStatus(bool installed, const ComponentStatus& raid);

 private:
  friend class HTMLComponent;  // renders through appendContent
  // Fills the page and appends what renderContent() returns; the document
  // renders the page straight into its own buffer through this.
  void appendContent(std::string& html);

  static TableComponent* newTable(std::initializer_list<const char*> columns);
  // A sub-section around one table, coloured by the agent's overall status.
  static HTMLComponent* newSection(const std::string& title, HTMLComponent* content, uint32_t overallStatus);
  void addCategory(const std::string& title, std::initializer_list<HTMLComponent*> subSections,
                   uint32_t overallStatus);

  SystemInformation m_SystemInformation;
};
