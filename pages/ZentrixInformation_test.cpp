#include "pages/ZentrixInformation.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/AgentSimulator.h"

namespace {

TEST(DurationTextTest, DaysHoursMinutesWithTheReportsOwnWording) {
  EXPECT_EQ("1 days 1 hours 1 minutes", ZentrixInformation::secondsToDaysHoursMinutes(90061));
  EXPECT_EQ("1 days ", ZentrixInformation::secondsToDaysHoursMinutes(86400));
  EXPECT_EQ("", ZentrixInformation::secondsToDaysHoursMinutes(59));
  EXPECT_EQ("", ZentrixInformation::secondsToDaysHoursMinutes(0));
  EXPECT_EQ("1 hours ", ZentrixInformation::secondsToDaysHoursMinutes(3600));
  EXPECT_EQ("2 days 3 hours ", ZentrixInformation::secondsToDaysHoursMinutes(2 * 86400 + 3 * 3600 + 59));
  EXPECT_EQ("1 minutes", ZentrixInformation::secondsToDaysHoursMinutes(60));
  EXPECT_EQ("49710 days 6 hours 28 minutes", ZentrixInformation::secondsToDaysHoursMinutes(4294967295u));
}

std::string field(const std::string& label, const std::string& value) {
  return "\n        <div class=\"row\">\n          <div class=\"title\">" + label +
         "</div>\n          <div class=\"value\">" + value + "</div>\n        </div>";
}

std::string renderWith(const std::string& profileJson) {
  std::string path = ::testing::TempDir() + "information-profile.json";
  std::ofstream(path) << profileJson;
  AgentSimulator::Options options;
  options.profile = path;
  AgentSimulator sim(options);
  ZentrixInformation page;
  return page.renderContent();
}

const char kEmptyPanel[] = "\n      <div class=\"status-table panel-body\">\n      </div>";

TEST(InformationPageTest, FirstAddressLabelledTheLastUnlabelled) {
  // The agent has two address slots; a third address never arrives.
  std::string three = renderWith(R"({"system": {"hostName": "h"}, "ipAddresses": ["10.0.0.1", "fe80::1", "10.0.0.3"]})");
  EXPECT_NE(std::string::npos, three.find(field("Host Name", "h") + field("IP Address", "10.0.0.1") +
                                          field("", "fe80::1") + "\n      </div>"));

  std::string one = renderWith(R"({"system": {"hostName": "h"}, "ipAddresses": ["10.0.0.1"]})");
  EXPECT_NE(std::string::npos, one.find(field("Host Name", "h") + field("IP Address", "10.0.0.1") + "\n      </div>"));

  std::string none = renderWith(R"({"system": {"hostName": "h"}})");
  EXPECT_NE(std::string::npos, none.find(field("Host Name", "h") + "\n      </div>"));
  EXPECT_EQ(std::string::npos, none.find("IP Address"));
}

TEST(InformationPageTest, MissingValuesDropTheirLinesButNeverTheSection) {
  std::string html = renderWith(R"({"system": {"model": "M1", "uptimeSeconds": 59, "powerOnSeconds": 90061}})");
  const std::string expected =
      "\n  <button type=\"button\" class=\"title-text title-line\">System Information</button>"
      "\n  <div class=\"content-main\">"
      "\n    <button type=\"button\" class=\"collapsible title-text\">System</button>\n    <div class=\"content\">"
      "\n      <div class=\"status-table panel-body\">" +
      field("Model", "M1") + field("Power On Duration", "1 days 1 hours 1 minutes") + "\n      </div>\n    </div>" +
      "\n    <button type=\"button\" class=\"collapsible title-text\">System Board</button>\n    <div class=\"content\">" +
      kEmptyPanel + "\n    </div>" +
      "\n    <button type=\"button\" class=\"collapsible title-text\">Operating System</button>\n    <div class=\"content\">" +
      kEmptyPanel + "\n    </div>" +
      "\n    <button type=\"button\" class=\"collapsible title-text\">System Management Software</button>\n    <div class=\"content\">" +
      kEmptyPanel + "\n    </div>" + "\n  </div>";
  EXPECT_EQ(expected, html);
}

TEST(InformationPageTest, TypicalServerFillsEveryLineInOrder) {
  AgentSimulator sim;  // the typical profile
  ZentrixInformation page;
  const std::string html = page.renderContent();
  EXPECT_NE(std::string::npos,
            html.find(field("Model", "ORVANA RS2400 G3") + field("Serial Number", "VM4K2203817") +
                      field("Chassis ID", "CH-0017-4421") + field("Asset Tag", "IT-ASSET-0815") +
                      field("UUID", "4c4c4544-0043-3510-8052-b3c04f4e3432") +
                      field("Power On Duration", "477 days 6 hours 2 minutes")));
  EXPECT_NE(std::string::npos, html.find(field("Serial Number", "BD7731K0925") + field("Ident Number", "MB-2400-G3-R12") +
                                         field("BIOS Version", "V5.0.0.21 R1.18.0")));
  EXPECT_NE(std::string::npos, html.find(field("Name", "Debian GNU/Linux 12 (bookworm)") +
                                         field("Uptime", "13 days 4 minutes") +
                                         field("Host Name", "rack07-node03.example.net")));
  EXPECT_NE(std::string::npos, html.find(field("Orvana Agentless Service", "10.40.05")));
}

}  // namespace
