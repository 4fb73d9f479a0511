#include "pages/ZentrixInformation.h"

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

TEST(DurationTextTest, DaysHoursMinutesWithTheReportsOwnWording) {
  const std::pair<unsigned, const char*> cases[] = {
      {90061, "1 days 1 hours 1 minutes"}, {86400, "1 days "},   {59, ""},           {3600, "1 hours "},
      {2 * 86400 + 3 * 3600 + 59, "2 days 3 hours "},              {60, "1 minutes"},
      {4294967295u, "49710 days 6 hours 28 minutes"}};
  for (const auto& c : cases) EXPECT_EQ(c.second, ZentrixInformation::secondsToDaysHoursMinutes(c.first)) << c.first;
}

std::string field(const std::string& label, const std::string& value) {
  return "\n        <div class=\"row\">\n          <div class=\"title\">" + label +
         "</div>\n          <div class=\"value\">" + value + "</div>\n        </div>";
}

TEST(InformationPageTest, MissingValuesDropTheirLinesAndOnlyTwoAddressesShow) {
  const std::string end = "\n      </div>";
  const struct {
    const char* profile;
    std::vector<std::string> parts;
  } cases[] = {
      {R"({"system": {"hostName": "h"}, "ipAddresses": ["10.0.0.1", "fe80::1", "10.0.0.3"]})",
       {field("Host Name", "h") + field("IP Address", "10.0.0.1") + field("", "fe80::1") + end}},
      {R"({"system": {"hostName": "h"}, "ipAddresses": ["10.0.0.1"]})",
       {field("Host Name", "h") + field("IP Address", "10.0.0.1") + end}},
      {R"({"system": {"hostName": "h", "model": "M1", "powerOnSeconds": 90061}})",
       {"panel-body\">" + field("Model", "M1") + field("Power On Duration", "1 days 1 hours 1 minutes") + end,
        field("Host Name", "h") + end}},
  };
  for (const auto& c : cases) {
    AgentSimulator sim({c.profile});
    const std::string html = ZentrixInformation().renderContent();
    for (const std::string& part : c.parts) EXPECT_NE(std::string::npos, html.find(part)) << c.profile << part;
  }
}

}  // namespace
