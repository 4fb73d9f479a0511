#include "Profile.h"

#include <gtest/gtest.h>

namespace agentsim {
namespace {

// The shipped profiles put every member the report reads where the client
// asks for it (the golden reports show that); these are the members they
// leave out. A value at the wrong address is a value the client never sees.
TEST(ProfileTest, MembersTheShippedProfilesLeaveOut) {
  Profile p;
  std::string error;
  ASSERT_TRUE(Profile::Parse(R"({"unknownStatus": 9, "fans": [{"status": 2}],
      "ipAddresses": [{"raw": [1, 2, 3]}],
      "overrides": [{"OC": "0x0302", "ST": 12}, {"OC": 769, "OI": 5, "DA": {"RAW": [1, 2]}},
                    {"OC": "0x0301", "remove": true}]})", p, error)) << error;
  const std::pair<Address, const char*> cases[] = {  // nullptr: unknown
      {{0xE108, 0, 0}, "{\"RAW\":[1,2,3]}"},
      // Overrides: no "DA" means none in the reply; "remove" makes it unknown.
      {{0x0302, 0, 0}, ""}, {{0x0301, 0, 5}, "{\"RAW\":[1,2]}"}, {{0x0301, 0, 0}, nullptr},
  };
  for (const auto& [at, data] : cases) {
    const AgentValue* value = p.values.Find(at);
    EXPECT_EQ(value ? value->data : "<unknown>", data ? data : "<unknown>") << std::hex << at.oc << "," << at.oi;
  }
  EXPECT_EQ(p.values.Find({0x0302, 0, 0})->status, 12u);
  EXPECT_EQ(p.unknownStatus, 9u);
}

TEST(ProfileTest, MistakesAreNamedWithTheirPlace) {
  const std::pair<const char*, const char*> cases[] = {  // the profile, the mistake named with its place
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
      {R"({"overrides":[{"OC":1,"answers":[{"DA":1,"OI":2}]}]})", "overrides[0].answers[0]: unknown member \"OI\""},
      {R"({"overrides":[{"OC":1,"answers":[]}]})", "overrides[0].answers: must be a non-empty array"},
      {R"({"overrides":[{"OC":1,"ST":0,"answers":[{"DA":1}]}]})", "overrides[0]: \"answers\" replaces"},
      {"{", "JSON error"},
  };
  for (const auto& [json, where] : cases) {
    Profile profile;
    std::string error;
    EXPECT_FALSE(Profile::Parse(json, profile, error)) << json;
    EXPECT_NE(error.find(where), std::string::npos) << json << " -> " << error;
  }
}

}  // namespace
}  // namespace agentsim
