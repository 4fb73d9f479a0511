#include "Responder.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace agentsim {
namespace {

Profile MustParse(const std::string& json) {
  Profile profile;
  std::string error;
  EXPECT_TRUE(Profile::Parse(json, profile, error)) << error;
  return profile;
}

TEST(ResponderTest, RepliesEchoTheCommandWithStatusAndData) {
  Profile profile = MustParse(R"({"cabinet": 2, "unknownStatus": 33, "system": {"model": "M1"},
                                  "fans": [{"rpm": 5400}], "voltages": [{"min": 1080, "max": 1320}]})");
  const struct {
    std::string request, reply;
  } cases[] = {
      {Sip(R"({"OC":3072,"OE":1544,"CA":2})"), Sip(R"({"OC":3072,"OE":1544,"CA":2,"ST":0,"DA":"M1"})")},
      // Missing OE/OI mean 0; leftover ST/DA of a reused record are not data; V is always 1.
      {Sip(R"({"OC":770,"CA":2,"ST":5,"DA":"old"})", 7), Sip(R"({"OC":770,"CA":2,"ST":0,"DA":5400})")},
      {Sip(R"({"OC":1315})"), Sip(R"({"OC":1315,"ST":0,"DA":{"RAW":[56,4,40,5]}})")},
      {Sip(R"({"OC":770,"OI":1,"CA":2})"), Sip(R"({"OC":770,"OI":1,"CA":2,"ST":33})")},
      // A client that lost its cabinet number addresses another machine.
      {Sip(R"({"OC":770,"CA":0})"), Sip(R"({"OC":770,"CA":0,"ST":33})")},
      {Sip(R"({"OC":57860})"), Sip(R"({"OC":57860,"ST":0,"DA":2})")},
      {Sip(R"({"OC":770},{"OC":1})"), Sip(R"({"OC":770,"ST":0,"DA":5400},{"OC":1,"ST":33})")},
      {"", Sip("")}, {"not json", Sip("")}, {"[1]", Sip("")}, {R"({"SIP":{"V":1}})", Sip("")},
      {R"({"SIP":{"V":1,"CMD":{}}})", Sip("")},
  };
  for (const auto& c : cases) EXPECT_EQ(Responder(profile).Respond(c.request, 1).reply, c.reply) << c.request;
}

TEST(ResponderTest, InitChannelSendsTheNameBackAndItsOwnDescriptorAtOffset65) {
  Profile profile = MustParse("{}");
  Outcome init = Responder(profile).Respond(Sip(R"({"OC":65440,"OE":4608,"CA":0,"DA":{"RAW":[90,120,0]}})"),
                                            0x01020304);
  std::string block = "90,120";
  for (int i = 2; i < 218; ++i) block += i == 65 ? ",4,3,2,1" : (i > 65 && i < 69) ? "" : ",0";
  EXPECT_EQ(init.reply, Sip(R"({"OC":65440,"OE":4608,"CA":0,"ST":0,"DA":{"RAW":[)" + block + "]}}"));
  EXPECT_TRUE(init.registersEventChannel);
  EXPECT_FALSE(Responder(profile).Respond(Sip(R"({"OC":65440,"OE":4352})"), 5).registersEventChannel);
}

TEST(ResponderTest, StatusResetClearsDriverMonitorWarningsUnlessOverridden) {
  const std::string reset = Sip(R"({"OC":6154,"DA":1,"ST":0,"CA":0})");
  Profile profile = MustParse(R"({"driverMonitor": [{"status": 1}, {"status": 2}, {"status": 3}, {"status": 4}]})");
  Outcome outcome = Responder(profile).Respond(reset, 1);
  EXPECT_EQ(outcome.reply, Sip(R"({"OC":6154,"CA":0,"ST":0,"DA":1})"));
  EXPECT_TRUE(outcome.clearedStatus);
  for (uint32_t i : {0u, 1u, 2u}) EXPECT_EQ(profile.values.Find({0x1801, 0, i})->data, "1") << i;
  EXPECT_EQ(profile.values.Find({0x1801, 0, 3})->data, "4");  // "not present" is not a stored status

  Profile refusing = MustParse(R"({"driverMonitor": [{"status": 3}], "overrides": [{"OC": 6154, "ST": 21}]})");
  outcome = Responder(refusing).Respond(reset, 1);
  EXPECT_FALSE(outcome.clearedStatus);
  EXPECT_EQ(outcome.reply, Sip(R"({"OC":6154,"CA":0,"ST":21})"));
  EXPECT_EQ(refusing.values.Find({0x1801, 0, 0})->data, "3");
}

}  // namespace
}  // namespace agentsim
