#include "pages/ZentrixHealth.h"

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

TEST(HealthCellTextTest, WorkedExamples) {
  // Limits are signed 16-bit; memory is in 1024ths (truncated, a blank for
  // 0), drives in 1000ths (rounded).
  using H = ZentrixHealth;
  const std::pair<std::string, const char*> cases[] = {
      {H::lowerThresholdText(0x04B00384), "9.00"},  {H::upperThresholdText(0x04B00384), "12.00"},
      {H::lowerThresholdText(0x0000FF9C), "-1.00"}, {H::upperThresholdText(0x80000000), "-327.68"},
      {H::hundredthsText(1205), "12.05"},           {H::memoryGigabytesText(16384), "16"},
      {H::memoryGigabytesText(0), " "},             {H::memoryGigabytesText(1000), "0"},
      {H::driveGigabytesText(999500), "1000"},      {H::gigahertzText(2400), "2.400"}};
  for (const auto& c : cases) EXPECT_EQ(c.second, c.first);
}

TEST(HealthCellTextTest, RaidSoftwareRowCarriesASecondStatusCell) {
  const struct { bool installed; ComponentStatus raid; ComponentStatusValue value; const char* text; } cases[] = {
      {true, {STATUS_NORMAL, "OK"}, STATUS_NORMAL, "Installed</td>\n<td class=\"status-normal icon status\">OK"},
      {false, {STATUS_UNKNOWN, "Unknown"}, STATUS_NOT_PRESENT,
       "Not Installed</td>\n<td class=\"status-not-present icon status\">Unknown"},
      {true, {STATUS_WARNING, "W"}, STATUS_NORMAL, "Installed</td>\n<td class=\"status-warning icon status\">W"},
      {true, {STATUS_ERROR, "E"}, STATUS_NORMAL, "Installed</td>\n<td class=\"status-error icon status\">E"},
      {true, {STATUS_NOT_PRESENT, ""}, STATUS_NORMAL, "Installed</td>\n<td class=\" icon status\">"},  // no class
  };
  for (const auto& c : cases) {
    ComponentStatus status = ZentrixHealth::raidSoftwareRowStatus(c.installed, c.raid);
    EXPECT_EQ(c.value, status.value) << c.text;
    EXPECT_EQ(c.text, status.text);
  }
}

std::string cell(const std::string& text) { return "\n            <td>" + text + "</td>"; }
std::string statusCell(const char* cssClass, const std::string& text) {
  return "\n            <td class=\"" + std::string(cssClass) + " icon status\">" + text + "</td>";
}
const char kNextRow[] = "\n          </tr>\n          <tr>";

// The health page against the simulator with the given profile (a name or
// inline JSON), and how often it asked the agent for a fresh RAID snapshot.
std::string render(const std::string& profile, size_t* raidRefreshes = nullptr) {
  AgentSimulator sim({profile});
  std::string html = ZentrixHealth().renderContent();
  for (const std::string& request : sim.requests()) {
    if (raidRefreshes != nullptr) *raidRefreshes += request.find("\"OC\":8671") != std::string::npos;
  }
  return html;
}

// True when every part occurs in html, each after the one before.
bool inOrder(const std::string& html, const std::vector<std::string>& parts) {
  size_t at = 0;
  for (const std::string& part : parts) {
    at = html.find(part, at);
    if (at == std::string::npos) return false;
  }
  return true;
}

TEST(HealthPageTest, SuppliesShowTheSensorStatusAndAdaptersSortByDriverClass) {
  size_t refreshes = 0;
  const std::string html = render(R"({
    "temperatureSensors": [{"designation": "Ambient", "status": 5, "type": 2, "celsius": 24}],
    "powerSupplies": [{"designation": "PSU1", "status": 1, "currentWatts": 162, "nominalWatts": 800},
                      {"designation": "PSU2", "status": 1}],
    "raid": {"status": 0, "adapters": []},
    "driverMonitor": [{"designation": "NIC 1", "location": "Slot 1", "class": 2, "status": 1},
                      {"designation": "HBA", "location": "Slot 2", "class": 3, "status": 1},
                      {"designation": "NIC 2", "location": "Onboard", "class": 2, "status": 1}]})",
                                  &refreshes);
  // Supply i shows temperature sensor i: critical for the first, none for the second.
  EXPECT_TRUE(inOrder(html, {statusCell("status-error", "Critical") + cell("PSU1") + cell("800") + cell("162"),
                                  statusCell("status-not-present", "N/A") + cell("PSU2") + cell("N/A") + cell("N/A")}));
  // Class 3 is mass storage, class 2 network, each table in index order.
  EXPECT_TRUE(inOrder(html, {">Mass Storage Adapters<", cell("HBA") + cell("Slot 2"), ">Network Adapters<",
                                  cell("NIC 1") + cell("Slot 1") + kNextRow + statusCell("status-normal", "OK") +
                                      cell("NIC 2")}));
  EXPECT_EQ(0u, refreshes) << "RAID status unknown: no snapshot refresh";
  render("typical", &refreshes);
  EXPECT_EQ(1u, refreshes) << "RAID status normal: one refresh";
}

TEST(HealthPageTest, AnAgentWithoutDataStillShowsEverySectionWithHeadersOnly) {
  const std::string html = render("empty");
  auto count = [&html](const std::string& text) {
    size_t n = 0;
    for (size_t p = html.find(text); p != std::string::npos; p = html.find(text, p + 1)) ++n;
    return n;
  };
  EXPECT_EQ(19u, count("<button type=\"button\" class=\"collapsible")) << "5 categories, 14 sections";
  EXPECT_EQ(14u + 1u, count("<tr>")) << "14 header rows and the RAID software row";
}

}  // namespace
