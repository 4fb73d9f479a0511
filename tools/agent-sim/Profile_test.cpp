#include "Profile.h"

#include <gtest/gtest.h>

#include <rapidjson/document.h>

namespace agentsim {
namespace {

std::string Data(const Profile& profile, Address at) {
  const AgentValue* value = profile.values.Find(at);
  return value ? value->data : "<missing>";
}

Profile MustParse(const std::string& json) {
  Profile profile;
  std::string error;
  EXPECT_TRUE(Profile::Parse(json, profile, error)) << error;
  return profile;
}

std::vector<int> RawBytes(const std::string& data) {
  rapidjson::Document document;
  document.Parse(data.c_str());
  std::vector<int> bytes;
  if (document.IsObject() && document.HasMember("RAW"))
    for (auto& byte : document["RAW"].GetArray()) bytes.push_back(byte.GetInt());
  return bytes;
}

TEST(ProfileTest, ComponentListsBecomeCountsAndIndexedValues) {
  Profile p = MustParse(R"({
    "fans": [{"designation": "FAN1", "status": 1, "type": 3, "rpm": 5400}, {"status": 2}],
    "temperatureSensors": [{"designation": "CPU1", "status": 6, "type": 1, "celsius": 47}],
    "powerSupplies": [{"designation": "PSU1", "status": 1, "currentWatts": 160, "nominalWatts": 800}],
    "memoryModules": [{"socket": "DIMM-1A", "status": 1, "sizeMB": 32768, "type": "DDR4", "subtype": "RDIMM"}],
    "processors": [{"socket": "CPU1", "status": 1, "type": "x86", "mhz": 2600}],
    "pciSlots": [{"designation": "PCIE-1", "status": 4}],
    "driverMonitor": [{"designation": "NIC", "location": "slot 2", "class": 2, "status": 3}]})");
  EXPECT_EQ(Data(p, {0x0300, 0, 0}), "2");
  EXPECT_EQ(Data(p, {0x0304, 0, 0}), "\"FAN1\"");
  EXPECT_EQ(Data(p, {0x0301, 0, 1}), "2");
  EXPECT_EQ(Data(p, {0x0303, 0, 0}), "3");
  EXPECT_EQ(Data(p, {0x0302, 0, 0}), "5400");
  EXPECT_EQ(Data(p, {0x0304, 0, 1}), "<missing>");  // not in the entry: not known
  EXPECT_EQ(Data(p, {0x0400, 0, 0}), "1");
  EXPECT_EQ(Data(p, {0x0402, 0, 0}), "47");
  EXPECT_EQ(Data(p, {0x0506, 0, 0}), "160");
  EXPECT_EQ(Data(p, {0x0507, 0, 0}), "800");
  EXPECT_EQ(Data(p, {0x070A, 0, 0}), "32768");
  EXPECT_EQ(Data(p, {0x070B, 0, 0}), "\"DDR4\"");
  EXPECT_EQ(Data(p, {0x070D, 0, 0}), "\"RDIMM\"");
  EXPECT_EQ(Data(p, {0x0605, 0, 0}), "\"x86\"");
  EXPECT_EQ(Data(p, {0x061D, 0, 0}), "2600");
  // PCI slot values sit under sub-index 0x28, their count does not.
  EXPECT_EQ(Data(p, {0x1480, 0, 0}), "1");
  EXPECT_EQ(Data(p, {0x1043, 0x28, 0}), "\"PCIE-1\"");
  EXPECT_EQ(Data(p, {0x1042, 0x28, 0}), "4");
  EXPECT_EQ(Data(p, {0x1800, 0, 0}), "1");
  EXPECT_EQ(Data(p, {0x1805, 0, 0}), "2");
  EXPECT_EQ(Data(p, {0x1804, 0, 0}), "\"slot 2\"");
  // Kinds not listed still have a count of 0.
  EXPECT_EQ(Data(p, {0x0520, 0, 0}), "0");
  EXPECT_EQ(Data(p, {0x2110, 0, 0}), "0");
}

TEST(ProfileTest, IdentityOverallAndRaidAddresses) {
  Profile p = MustParse(R"({"cabinet": 3,
    "system": {"model": "M", "uuid": "U", "assetTag": "A", "powerOnSeconds": 90061, "uptimeSeconds": 60,
               "hostName": "h", "agentVersion": "1.0", "currentPowerConsumption": "300 W"},
    "overall": {"environment": 1, "network": 3, "temperature": 2, "pciSlots": 2, "massStorageAdapters": 1},
    "raid": {"version": "7.1", "status": 1, "adapters": [
      {"designation": "A0", "status": 0},
      {"designation": "A1", "status": 1,
       "logicalDrives": [{"designation": "LD0", "status": 1, "level": "RAID-5", "sizeMB": 1000}],
       "physicalDrives": [{}, {"designation": "PD1", "status": 11, "smart": 1, "interface": 8, "sizeMB": 500}]}]}})");
  EXPECT_EQ(Data(p, {0x0C00, 0x0608, 0}), "\"M\"");
  EXPECT_EQ(Data(p, {0x0C00, 0x1510, 0}), "\"U\"");
  EXPECT_EQ(Data(p, {0xE001, 0x0210, 0}), "\"A\"");
  EXPECT_EQ(Data(p, {0xE001, 0x1010, 0}), "90061");
  EXPECT_EQ(Data(p, {0x011E, 0, 0}), "60");
  EXPECT_EQ(Data(p, {0xE107, 0, 0}), "\"h\"");
  EXPECT_EQ(Data(p, {0x0C00, 0xA806, 0}), "\"1.0\"");
  EXPECT_EQ(Data(p, {0x0931, 0, 0}), "\"300 W\"");
  EXPECT_EQ(Data(p, {0xE204, 0, 0}), "3");
  EXPECT_EQ(Data(p, {0x2301, 0, 0}), "1");
  EXPECT_EQ(Data(p, {0x2301, 5, 0}), "3");
  EXPECT_EQ(Data(p, {0x2306, 0, 2}), "2");  // temperature: selector in the object index
  EXPECT_EQ(Data(p, {0x2306, 3, 4}), "2");
  EXPECT_EQ(Data(p, {0x1820, 3, 0}), "1");
  EXPECT_EQ(Data(p, {0x0C00, 43523, 0}), "\"7.1\"");
  EXPECT_EQ(Data(p, {0x2120, 0, 0}), "1");
  EXPECT_EQ(Data(p, {0x21DF, 0, 0}), "0");
  EXPECT_EQ(Data(p, {0x2110, 0, 0}), "2");
  EXPECT_EQ(Data(p, {0x2150, 0, 0}), "0");
  EXPECT_EQ(Data(p, {0x2130, 0, 0}), "0");
  EXPECT_EQ(Data(p, {0x2150, 1, 0}), "1");
  EXPECT_EQ(Data(p, {0x2130, 1, 0}), "2");
  EXPECT_EQ(Data(p, {0x2155, 1, 0}), "\"RAID-5\"");
  EXPECT_EQ(Data(p, {0x2153, 1, 0}), "1000");
  EXPECT_EQ(Data(p, {0x2131, 1, 1}), "11");
  EXPECT_EQ(Data(p, {0x2132, 1, 1}), "1");
  EXPECT_EQ(Data(p, {0x2134, 1, 1}), "8");
  EXPECT_EQ(Data(p, {0x2135, 1, 1}), "500");
  EXPECT_EQ(Data(p, {0x2133, 1, 0}), "<missing>");
}

TEST(ProfileTest, BlocksForThresholdsAddressesAndEventLog) {
  Profile p = MustParse(R"({
    "voltages": [{"designation": "12V", "current": 1206, "min": 1080, "max": 1320},
                 {"designation": "VTT", "min": -165, "max": -135}, {"designation": "no limits"}],
    "ipAddresses": ["192.168.1.10", "fe80::1", {"raw": [1, 2, 3, 4, 5, 6]}],
    "eventLog": [{"severity": 3, "code": 4660, "time": 1, "message": "ab"}, {"severity": 0, "code": 66}]})");
  // 1080 = 0x0438 low half, 1320 = 0x0528 high half, little-endian.
  EXPECT_EQ(RawBytes(Data(p, {0x0523, 0, 0})), (std::vector<int>{0x38, 0x04, 0x28, 0x05}));
  // -165 = 0xFF5B, -135 = 0xFF79.
  EXPECT_EQ(RawBytes(Data(p, {0x0523, 0, 1})), (std::vector<int>{0x5B, 0xFF, 0x79, 0xFF}));
  EXPECT_EQ(Data(p, {0x0523, 0, 2}), "<missing>");
  EXPECT_EQ(RawBytes(Data(p, {0xE108, 0, 0})), (std::vector<int>{192, 168, 1, 10}));
  std::vector<int> v6(16, 0);
  v6[0] = 0xfe, v6[1] = 0x80, v6[15] = 1;
  EXPECT_EQ(RawBytes(Data(p, {0xE108, 1, 0})), v6);
  EXPECT_EQ(RawBytes(Data(p, {0xE108, 2, 0})).size(), 6u);

  std::vector<int> log = RawBytes(Data(p, {0x0B10, 0, 0}));
  std::vector<int> first = {19, 0, 0, 3, 0x34, 0x12, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 0};
  std::vector<int> second = {17, 0, 0, 0, 66, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  ASSERT_EQ(log.size(), first.size() + second.size());
  EXPECT_EQ(std::vector<int>(log.begin(), log.begin() + first.size()), first);
  EXPECT_EQ(std::vector<int>(log.begin() + first.size(), log.end()), second);
}

TEST(ProfileTest, OverridesEventsAndEmptyProfile) {
  Profile p = MustParse(R"({"fans": [{"status": 1}], "unknownStatus": 9,
    "overrides": [{"OC": "0x0301", "ST": 12}, {"OC": 769, "OI": 5, "DA": {"RAW": [1, 2]}},
                  {"OC": "0x0300", "remove": true}],
    "events": [{"OC": "0x0302", "OI": 2, "DA": 5580}]})");
  ASSERT_NE(p.values.Find({0x0301, 0, 0}), nullptr);
  EXPECT_EQ(p.values.Find({0x0301, 0, 0})->status, 12u);
  EXPECT_EQ(Data(p, {0x0301, 0, 0}), "");  // no "DA" given: none in the reply
  EXPECT_EQ(Data(p, {0x0301, 0, 5}), "{\"RAW\":[1,2]}");
  EXPECT_EQ(Data(p, {0x0300, 0, 0}), "<missing>");
  EXPECT_EQ(p.unknownStatus, 9u);
  ASSERT_EQ(p.events.size(), 1u);
  EXPECT_EQ(p.events[0], "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":770,\"OI\":2,\"DA\":5580}]}}");

  Profile empty = MustParse("{}");
  for (uint32_t oc : {0x0300u, 0x0400u, 0x0500u, 0x0520u, 0x0700u, 0x0600u, 0x1480u, 0x2110u, 0x1800u})
    EXPECT_EQ(Data(empty, {oc, 0, 0}), "0") << std::hex << oc;
  EXPECT_EQ(Data(empty, {0x0C00, 0x0608, 0}), "<missing>");
  EXPECT_EQ(Data(empty, {0x0B10, 0, 0}), "<missing>");
  EXPECT_EQ(Data(empty, {0xE204, 0, 0}), "0");
}

TEST(ProfileTest, MistakesAreReportedWithTheirPlace) {
  struct Case {
    const char* json;
    const char* where;
  };
  const Case cases[] = {
      {"{\"fans\": [{\"rmp\": 1}]}", "fans[0]: unknown member \"rmp\""},
      {"{\"fanz\": []}", "unknown member \"fanz\""},
      {"{\"fans\": {}}", "fans: must be an array"},
      {"{\"fans\": [{\"status\": -1}]}", "fans[0].status: must be an unsigned number"},
      {"{\"fans\": [{\"designation\": 5}]}", "fans[0].designation: must be a string"},
      {"{\"voltages\": [{\"min\": 1}]}", "voltages[0]: \"min\" and \"max\" go together"},
      {"{\"voltages\": [{\"min\": 1, \"max\": 40000}]}", "signed 16-bit"},
      {"{\"ipAddresses\": [\"300.1.1.1\"]}", "ipAddresses[0]"},
      {"{\"eventLog\": [{\"code\": 1}]}", "eventLog[0]"},
      {"{\"overall\": {\"cooling\": 1}}", "overall: unknown member \"cooling\""},
      {"{\"overrides\": [{\"ST\": 1}]}", "needs \"OC\""},
      {"{\"raid\": {\"adapters\": [{\"logicalDrives\": [{\"sizeGB\": 1}]}]}}", "raid.adapters[0].logicalDrives[0]"},
      {"{\"system\": {\"modelName\": \"x\"}}", "system: unknown member"},
      {"{", "JSON error"},
  };
  for (const Case& c : cases) {
    Profile profile;
    std::string error;
    EXPECT_FALSE(Profile::Parse(c.json, profile, error)) << c.json;
    EXPECT_NE(error.find(c.where), std::string::npos) << c.json << " -> " << error;
  }
}

TEST(ProfileTest, ShippedProfilesLoad) {
  for (const char* name : {"typical", "empty", "degraded"}) {
    Profile profile;
    std::string error;
    EXPECT_TRUE(Profile::Load(std::string(AGENT_SIM_PROFILES) + "/" + name + ".json", profile, error)) << error;
  }
  Profile typical;
  std::string error;
  ASSERT_TRUE(Profile::Load(std::string(AGENT_SIM_PROFILES) + "/typical.json", typical, error));
  uint64_t count = 0;
  ASSERT_TRUE(typical.values.GetNumber({0x0700, 0, 0}, count));
  EXPECT_EQ(count, 16u);
  // Every listed component has its status, so a report has no hole.
  for (uint32_t i = 0; i < count; ++i) EXPECT_NE(typical.values.Find({0x0701, 0, i}), nullptr);
  EXPECT_FALSE(typical.events.empty());
}

TEST(ProfileTest, ParseUnsignedAcceptsHexAndRejectsJunk) {
  uint32_t value = 0;
  EXPECT_TRUE(ParseUnsigned("0x0301", value));
  EXPECT_EQ(value, 0x0301u);
  EXPECT_TRUE(ParseUnsigned("4294967295", value));
  EXPECT_EQ(value, 0xFFFFFFFFu);
  for (const char* bad : {"", "-1", "4294967296", "12abc", " 1", "0x"}) EXPECT_FALSE(ParseUnsigned(bad, value)) << bad;
}

}  // namespace
}  // namespace agentsim
