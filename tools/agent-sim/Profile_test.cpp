#include "Profile.h"

#include <gtest/gtest.h>

namespace agentsim {
namespace {

// One profile naming every component kind; the table below is where each
// member must land. A value at the wrong address is a value the client
// never sees, so the addresses are the point of this test.
const char* const kEverything = R"({"cabinet": 3, "unknownStatus": 9,
  "system": {"model": "M", "powerOnSeconds": 90061, "hostName": "h"},
  "fans": [{"designation": "FAN1", "rpm": 5400}, {"status": 2}],
  "temperatureSensors": [{"celsius": 47}], "powerSupplies": [{"currentWatts": 160}],
  "voltages": [{"current": 1206, "min": 1080, "max": 1320}, {"min": -165, "max": -135}, {"designation": "none"}],
  "memoryModules": [{"sizeMB": 32768}], "processors": [{"type": "x86"}],
  "pciSlots": [{"designation": "PCIE-1"}], "driverMonitor": [{"location": "slot 2"}],
  "overall": {"network": 3, "temperature": 2},
  "raid": {"version": "7.1", "adapters": [{"designation": "A0"}, {"designation": "A1",
           "logicalDrives": [{"level": "RAID-5"}], "physicalDrives": [{}, {"sizeMB": 500}]}]},
  "ipAddresses": ["192.168.1.10", "fe80::1", {"raw": [1, 2, 3]}],
  "eventLog": [{"severity": 3, "code": 4660, "time": 1, "message": "ab"}, {"severity": 0, "code": 66}],
  "overrides": [{"OC": "0x0302", "ST": 12}, {"OC": 769, "OI": 5, "DA": {"RAW": [1, 2]}},
                {"OC": "0x0402", "remove": true}],
  "events": [{"OC": "0x0302", "OI": 2, "DA": 5580}]})";

TEST(ProfileTest, EveryKindOfMemberLandsAtItsAddress) {
  Profile p;
  std::string error;
  ASSERT_TRUE(Profile::Parse(kEverything, p, error)) << error;
  const struct {
    Address at;
    const char* data;  // nullptr: unknown
  } cases[] = {
      {{0x0C00, 0x0608, 0}, "\"M\""}, {{0xE001, 0x1010, 0}, "90061"}, {{0xE107, 0, 0}, "\"h\""},
      {{0xE204, 0, 0}, "3"}, {{0x0300, 0, 0}, "2"}, {{0x0304, 0, 0}, "\"FAN1\""}, {{0x0301, 0, 1}, "2"},
      {{0x0304, 0, 1}, nullptr},  // left out of the entry: unknown
      {{0x0400, 0, 0}, "1"}, {{0x0506, 0, 0}, "160"}, {{0x0524, 0, 0}, "1206"}, {{0x070A, 0, 0}, "32768"},
      {{0x0605, 0, 0}, "\"x86\""}, {{0x1804, 0, 0}, "\"slot 2\""},
      // Limits: lower in the low 16 bits, little-endian, signed.
      {{0x0523, 0, 0}, "{\"RAW\":[56,4,40,5]}"}, {{0x0523, 0, 1}, "{\"RAW\":[91,255,121,255]}"},
      {{0x0523, 0, 2}, nullptr},
      // PCI slot values sit under sub-index 0x28, their count does not.
      {{0x1480, 0, 0}, "1"}, {{0x1043, 0x28, 0}, "\"PCIE-1\""},
      {{0x2301, 5, 0}, "3"}, {{0x2306, 0, 2}, "2"},
      {{0x0C00, 0xAA03, 0}, "\"7.1\""}, {{0x2110, 0, 0}, "2"}, {{0x2111, 0, 1}, "\"A1\""},
      {{0x2150, 0, 0}, "0"}, {{0x2130, 1, 0}, "2"}, {{0x2155, 1, 0}, "\"RAID-5\""}, {{0x2135, 1, 1}, "500"},
      {{0x2135, 1, 0}, nullptr},
      {{0xE108, 0, 0}, "{\"RAW\":[192,168,1,10]}"},
      {{0xE108, 1, 0}, "{\"RAW\":[254,128,0,0,0,0,0,0,0,0,0,0,0,0,0,1]}"}, {{0xE108, 2, 0}, "{\"RAW\":[1,2,3]}"},
      {{0x0B10, 0, 0}, "{\"RAW\":[19,0,0,3,52,18,0,0,1,0,0,0,0,0,0,0,97,98,0,"
                       "17,0,0,0,66,0,0,0,0,0,0,0,0,0,0,0,0]}"},
      // Overrides: no "DA" means none in the reply; "remove" makes it unknown.
      {{0x0302, 0, 0}, ""}, {{0x0301, 0, 5}, "{\"RAW\":[1,2]}"}, {{0x0402, 0, 0}, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.at.oc << "," << c.at.oe << "," << c.at.oi);
    const AgentValue* value = p.values.Find(c.at);
    EXPECT_EQ(value ? value->data : "<unknown>", c.data ? c.data : "<unknown>");
  }
  EXPECT_EQ(p.values.Find({0x0302, 0, 0})->status, 12u);
  EXPECT_EQ(p.unknownStatus, 9u);
  EXPECT_EQ(p.events, std::vector<std::string>{"{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":770,\"OI\":2,\"DA\":5580}]}}"});

  Profile empty;  // counts are always answered, other values never made up
  ASSERT_TRUE(Profile::Parse("{}", empty, error));
  for (uint32_t oc : {0x0300u, 0x0400u, 0x0500u, 0x0520u, 0x0700u, 0x0600u, 0x1480u, 0x2110u, 0x1800u})
    EXPECT_EQ(empty.values.Find({oc, 0, 0})->data, "0") << std::hex << oc;
  EXPECT_EQ(empty.values.Find({0x0B10, 0, 0}), nullptr);
}

TEST(ProfileTest, MistakesAreNamedWithTheirPlace) {
  const struct {
    const char* json;
    const char* where;
  } cases[] = {
      {"{\"fans\": [{\"rmp\": 1}]}", "fans[0]: unknown member \"rmp\""},
      {"{\"fanz\": []}", "unknown member \"fanz\""},
      {"{\"system\": {\"modelName\": \"x\"}}", "system: unknown member \"modelName\""},
      {"{\"overall\": {\"cooling\": 1}}", "overall: unknown member \"cooling\""},
      {"{\"raid\": {\"adapters\": [{\"logicalDrives\": [{\"sizeGB\": 1}]}]}}",
       "raid.adapters[0].logicalDrives[0]: unknown member \"sizeGB\""},
      {"{\"fans\": {}}", "fans: must be an array"},
      {"{\"fans\": [{\"status\": -1}]}", "fans[0].status: must be an unsigned number"},
      {"{\"fans\": [{\"designation\": 5}]}", "fans[0].designation: must be a string"},
      {"{\"voltages\": [{\"min\": 1}]}", "voltages[0]: \"min\" and \"max\" go together"},
      {"{\"voltages\": [{\"min\": 1, \"max\": 40000}]}", "signed 16-bit"},
      {"{\"overrides\": [{\"ST\": 1}]}", "needs \"OC\""},
      {"{", "JSON error"},
  };
  for (const auto& c : cases) {
    Profile profile;
    std::string error;
    EXPECT_FALSE(Profile::Parse(c.json, profile, error)) << c.json;
    EXPECT_NE(error.find(c.where), std::string::npos) << c.json << " -> " << error;
  }
}

TEST(ProfileTest, ShippedProfilesLoadWithAStatusForEveryComponent) {
  for (const char* name : {"typical", "empty", "degraded"}) {
    Profile profile;
    std::string error;
    ASSERT_TRUE(Profile::Load(std::string(AGENT_SIM_PROFILES) + "/" + name + ".json", profile, error)) << error;
    uint64_t count = 0;
    ASSERT_TRUE(profile.values.GetNumber({0x0700, 0, 0}, count));
    for (uint32_t i = 0; i < count; ++i) EXPECT_NE(profile.values.Find({0x0701, 0, i}), nullptr) << name << i;
  }
}

}  // namespace
}  // namespace agentsim
