#include "pages/ZentrixHealth.h"

#include <iterator>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

// The profile keys of the overall statuses the section headings show, in page
// order ("raid" stands for the RAID system's own status).
const char* const kSectionStatusKeys[] = {
    "environment", "coolingDevices", "temperature", "powerSupply", "powerSupplyUnits", "massStorage",
    "massStorageAdapters", "raid", "raidAdapters", "raidLogicalDrives", "raidPhysicalDrives", "systemBoard",
    "voltages", "memoryModules", "processors", "pciSlots", "network", "networkAdapters"};

// Over three pages section i is given the base-4 digits of i + 2 as statuses,
// so no two sections see the same three: a heading coloured by another
// section's getter shows. The RAID status runs through 1, 2 and 0, and only a
// normal one may ask the agent for a fresh RAID snapshot.
TEST(HealthPageTest, EachHeadingShowsItsOwnOverallStatusAndOnlyANormalRaidIsRefreshed) {
  const char* const classes[] = {"", " status-normal", " status-warning", " status-error"};
  for (unsigned scale = 1; scale <= 16; scale *= 4) {
    std::string overall, expected;
    unsigned raid = 0;
    for (unsigned i = 0; i < std::size(kSectionStatusKeys); ++i) {
      const unsigned digit = (i + 2) / scale % 4;
      const std::string key = kSectionStatusKeys[i];
      if (key == "raid") raid = digit;
      else overall += (overall.empty() ? "\"" : ", \"") + key + "\": " + std::to_string(digit);
      expected += classes[digit] + std::string("|");
    }
    expected += " status-normal|";  // the event log is always normal
    AgentSimulator sim({"{\"raid\": {\"status\": " + std::to_string(raid) + "}, \"overall\": {" + overall + "}}"});
    const std::string html = ZentrixHealth().renderContent();

    std::string shown;
    const std::regex heading("class=\"collapsible title-text([^\"]*)\"");
    for (std::sregex_iterator m(html.begin(), html.end(), heading), end; m != end; ++m) shown += (*m)[1].str() + "|";
    EXPECT_EQ(expected, shown) << "RAID status " << raid;
    size_t refreshes = 0;
    for (const std::string& request : sim.requests()) refreshes += request.find("\"OC\":8671") != std::string::npos;
    EXPECT_EQ(raid == STATUS_NORMAL ? 1u : 0u, refreshes) << "RAID status " << raid;
  }
}
