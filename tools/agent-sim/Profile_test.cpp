#include "Profile.h"

#include <gtest/gtest.h>

namespace agentsim {
namespace {

// An override with "remove" makes a value unknown; no shipped profile uses
// one. The other members they leave out are read in the client's tests
// (overrides, raw addresses) and the capture test (unknownStatus).
TEST(ProfileTest, AnOverrideRemovesAValue) {
  Profile p;
  std::string error;
  ASSERT_TRUE(Profile::Parse(R"({"overrides": [{"OC": 769, "DA": 1}, {"OC": "0x0301", "remove": true}]})", p, error))
      << error;
  EXPECT_EQ(p.values.Find({0x0301, 0, 0}), nullptr);
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
