#include "pages/ZentrixHealth.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/AgentSimulator.h"

namespace {

TEST(HealthCellTextTest, ReadingsUseTheirUnitsAndFormats) {
  EXPECT_EQ("9.00", ZentrixHealth::lowerThresholdText(0x04B00384));
  EXPECT_EQ("12.00", ZentrixHealth::upperThresholdText(0x04B00384));
  EXPECT_EQ("-1.00", ZentrixHealth::lowerThresholdText(0x0000FF9C)) << "limits are signed 16-bit";
  EXPECT_EQ("-327.68", ZentrixHealth::upperThresholdText(0x80000000));
  EXPECT_EQ("12.05", ZentrixHealth::hundredthsText(1205));

  EXPECT_EQ("16", ZentrixHealth::memoryGigabytesText(16384));
  EXPECT_EQ(" ", ZentrixHealth::memoryGigabytesText(0)) << "a blank, not N/A";
  EXPECT_EQ("0", ZentrixHealth::memoryGigabytesText(1000)) << "1024ths, truncated";
  EXPECT_EQ("1000", ZentrixHealth::driveGigabytesText(999500)) << "1000ths, rounded";
  EXPECT_EQ("458", ZentrixHealth::driveGigabytesText(457862));
  EXPECT_EQ("2.400", ZentrixHealth::gigahertzText(2400));
  EXPECT_EQ("4294967295", ZentrixHealth::unsignedText(4294967295u));
}

TEST(HealthCellTextTest, RaidSoftwareRowCarriesASecondStatusCell) {
  ComponentStatus installed = ZentrixHealth::raidSoftwareRowStatus(true, ComponentStatus(STATUS_NORMAL, "OK"));
  EXPECT_EQ(STATUS_NORMAL, installed.value);
  EXPECT_EQ("Installed</td>\n<td class=\"status-normal icon status\">OK", installed.text);

  ComponentStatus missing = ZentrixHealth::raidSoftwareRowStatus(false, ComponentStatus(STATUS_UNKNOWN, "Unknown"));
  EXPECT_EQ(STATUS_NOT_PRESENT, missing.value);
  EXPECT_EQ("Not Installed</td>\n<td class=\"status-not-present icon status\">Unknown", missing.text);

  EXPECT_EQ("Installed</td>\n<td class=\"status-warning icon status\">W",
            ZentrixHealth::raidSoftwareRowStatus(true, ComponentStatus(STATUS_WARNING, "W")).text);
  EXPECT_EQ("Installed</td>\n<td class=\"status-error icon status\">E",
            ZentrixHealth::raidSoftwareRowStatus(true, ComponentStatus(STATUS_ERROR, "E")).text);
  EXPECT_EQ("Installed</td>\n<td class=\" icon status\">",
            ZentrixHealth::raidSoftwareRowStatus(true, ComponentStatus(STATUS_NOT_PRESENT, "")).text)
      << "other values get no class";
}

// A profile with the values whose rendering the report promises.
const char kExamples[] = R"({
  "temperatureSensors": [{"designation": "Ambient", "status": 5, "type": 2, "celsius": 24}],
  "powerSupplies": [
    {"designation": "PSU1", "status": 1, "currentWatts": 162, "nominalWatts": 800},
    {"designation": "PSU2", "status": 1}
  ],
  "voltages": [{"designation": "MAIN 12V", "status": 1, "current": 1205, "min": 900, "max": 1200}],
  "memoryModules": [
    {"socket": "A", "status": 1, "sizeMB": 16384, "type": "DDR4", "subtype": "RDIMM"},
    {"socket": "B", "status": 0, "sizeMB": 0},
    {"socket": "C", "status": 1, "sizeMB": 1000, "type": "DDR4"}
  ],
  "processors": [{"socket": "CPU1", "status": 1, "type": "x86", "mhz": 2400}],
  "raid": {"status": 0, "adapters": [{"designation": "Ctl", "status": 0,
           "logicalDrives": [{"designation": "LD0", "status": 0, "level": "RAID-1", "sizeMB": 999500}],
           "physicalDrives": []}]},
  "driverMonitor": [
    {"designation": "NIC 1", "location": "Slot 1", "class": 2, "status": 1},
    {"designation": "HBA", "location": "Slot 2", "class": 3, "status": 1},
    {"designation": "NIC 2", "location": "Onboard", "class": 2, "status": 1}
  ],
  "overall": {"environment": 3, "coolingDevices": 2, "temperature": 1, "powerSupply": 0},
  "eventLog": [
    {"severity": 3, "code": 43981, "time": 1, "message": "critical one"},
    {"severity": 1, "code": 66, "time": 0, "message": "minor one"}
  ]
})";

std::string cell(const std::string& text) { return "\n            <td>" + text + "</td>"; }
std::string statusCell(const char* cssClass, const std::string& text) {
  return "\n            <td class=\"" + std::string(cssClass) + " icon status\">" + text + "</td>";
}

class HealthPageTest : public ::testing::Test {
 protected:
  static std::string profileFile(const std::string& name, const std::string& json) {
    std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << json;
    return path;
  }
  static AgentSimulator::Options options(const std::string& profile) {
    AgentSimulator::Options result;
    result.profile = profile;
    return result;
  }
};

TEST_F(HealthPageTest, WorkedExamplesRenderAsPromised) {
  AgentSimulator sim(options(profileFile("health-examples.json", kExamples)));
  ZentrixHealth page;
  const std::string html = page.renderContent();

  EXPECT_NE(std::string::npos, html.find(cell("MAIN 12V") + cell("12.05") + cell("9.00") + cell("12.00")));
  EXPECT_NE(std::string::npos, html.find(cell("A") + cell("16") + cell("DDR4 RDIMM")));
  EXPECT_NE(std::string::npos, html.find(cell("B") + cell(" ") + cell(" ")));
  EXPECT_NE(std::string::npos, html.find(cell("C") + cell("0") + cell("DDR4 ")));
  EXPECT_NE(std::string::npos, html.find(cell("CPU1") + cell("x86") + cell("2.400")));
  EXPECT_NE(std::string::npos, html.find(cell("0") + cell("LD0") + cell("RAID-1") + cell("1000")));
  // Both supplies show the status of temperature sensor 0 (critical); the
  // second has no power readings and no sensor of its own.
  EXPECT_NE(std::string::npos, html.find(statusCell("status-error", "Critical") + cell("PSU1") + cell("800") + cell("162")));
  EXPECT_NE(std::string::npos, html.find(statusCell("status-not-present", "N/A") + cell("PSU2") + cell("N/A") + cell("N/A")));
  // No RAID software, RAID status unknown, and so no snapshot refresh.
  EXPECT_NE(std::string::npos, html.find(statusCell("status-not-present", "Not Installed</td>\n<td class=\"status-not-present icon status\">Unknown") + cell("N/A")));
  for (const std::string& request : sim.requests()) EXPECT_EQ(std::string::npos, request.find("\"OC\":8671")) << request;
  // Driver Monitor classes: 3 for mass storage, 2 for network, in index order.
  EXPECT_NE(std::string::npos, html.find(cell("HBA") + cell("Slot 2")));
  EXPECT_NE(std::string::npos, html.find(cell("NIC 1") + cell("Slot 1") + "\n          </tr>\n          <tr>" +
                                         statusCell("status-normal", "OK") + cell("NIC 2")));
  // Event log rows: severity status, spread code, UTC time, message.
  EXPECT_NE(std::string::npos, html.find(statusCell("status-error", "Critical") + cell("0xAB00CD") +
                                         cell("1970/01/01 00:00:01") + cell("critical one")));
  EXPECT_NE(std::string::npos, html.find(statusCell("status-warning", "Minor") + cell("0x0042") +
                                         cell(" <no date/no time> ") + cell("minor one")));
  // Section colours come from the overall statuses alone.
  EXPECT_NE(std::string::npos, html.find("class=\"collapsible title-text status-error\">Environment<"));
  EXPECT_NE(std::string::npos, html.find("class=\"collapsible title-text status-warning\">Cooling Devices<"));
  EXPECT_NE(std::string::npos, html.find("class=\"collapsible title-text\">Power Supply<"));
  EXPECT_NE(std::string::npos, html.find("class=\"collapsible title-text status-normal\">System Event Log<"));
}

TEST_F(HealthPageTest, RaidSnapshotIsRefreshedOnlyForANormalRaid) {
  AgentSimulator sim(options("typical"));
  ZentrixHealth page;
  const std::string html = page.renderContent();
  EXPECT_NE(std::string::npos,
            html.find(statusCell("status-normal", "Installed</td>\n<td class=\"status-normal icon status\">OK") +
                      cell("7.31.3")));
  size_t refreshes = 0;
  for (const std::string& request : sim.requests()) refreshes += request.find("\"OC\":8671") != std::string::npos;
  EXPECT_EQ(1u, refreshes);
}

TEST_F(HealthPageTest, AnAgentWithoutDataStillShowsEverySection) {
  AgentSimulator sim(options("empty"));
  ZentrixHealth page;
  const std::string html = page.renderContent();
  const char* titles[] = {"Environment", "Cooling Devices", "Temperature", "Power Supply", "Power Supply Units",
                          "Mass Storage", "Mass Storage Adapters", "Orvana RAID System", "RAID Adapters",
                          "RAID Logical Drives", "RAID Physical Drives", "System Board", "Voltages",
                          "Memory Modules", "System Processors", "PCI Slots", "Network", "Network Adapters",
                          "System Event Log"};
  size_t at = 0;
  for (const char* title : titles) {
    size_t found = html.find(std::string("\">") + title + "</button>", at);
    ASSERT_NE(std::string::npos, found) << title << " missing or out of order";
    at = found;
  }
  // Only the RAID software row: every other table has its headers only.
  size_t rows = 0;
  for (size_t p = html.find("<tr>"); p != std::string::npos; p = html.find("<tr>", p + 1)) ++rows;
  EXPECT_EQ(14u + 1u, rows) << "14 header rows and the RAID software row";
  EXPECT_NE(std::string::npos, html.find("System Event Log</button>\n    <div class=\"content\">\n      <table"));
}

}  // namespace
