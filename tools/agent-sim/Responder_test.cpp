#include "Responder.h"

#include <gtest/gtest.h>

#include <rapidjson/document.h>

namespace agentsim {
namespace {

class ResponderTest : public ::testing::Test {
 protected:
  void Load(const std::string& json) {
    std::string error;
    ASSERT_TRUE(Profile::Parse(json, profile_, error)) << error;
  }
  // The first command of the reply.
  const rapidjson::Value& Reply(const std::string& request, int fd = 7) {
    outcome_ = Responder(profile_).Respond(request, fd);
    reply_.Parse(outcome_.reply.c_str());
    EXPECT_FALSE(reply_.HasParseError()) << outcome_.reply;
    EXPECT_EQ(reply_["SIP"]["V"].GetUint(), 1u);
    return reply_["SIP"]["CMD"][0];
  }

  Profile profile_;
  Outcome outcome_;
  rapidjson::Document reply_;
};

TEST_F(ResponderTest, KnownAddressesAnswerWithDataAndEchoTheCommand) {
  Load(R"({"system": {"model": "M1", "uptimeSeconds": 90061}, "fans": [{"rpm": 5400}],
           "voltages": [{"min": 1080, "max": 1320}]})");
  EXPECT_EQ(Reply(R"({"SIP":{"V":1,"CMD":[{"OC":3072,"OE":1544,"CA":0}]}})").GetObject()["DA"].GetString(),
            std::string("M1"));
  EXPECT_EQ(outcome_.reply, R"({"SIP":{"V":1,"CMD":[{"OC":3072,"OE":1544,"CA":0,"ST":0,"DA":"M1"}]}})");
  EXPECT_EQ(Reply(R"({"SIP":{"V":1,"CMD":[{"OC":286,"CA":0}]}})")["DA"].GetUint(), 90061u);
  // Missing OE/OI mean 0; leftover ST/DA of a reused record are not taken as data.
  const rapidjson::Value& fan = Reply(R"({"SIP":{"V":1,"CMD":[{"OC":770,"CA":0,"ST":5,"DA":"old"}]}})");
  EXPECT_EQ(fan["ST"].GetUint(), 0u);
  EXPECT_EQ(fan["DA"].GetUint(), 5400u);
  EXPECT_EQ(outcome_.reply, R"({"SIP":{"V":1,"CMD":[{"OC":770,"CA":0,"ST":0,"DA":5400}]}})");
  const rapidjson::Value& limits = Reply(R"({"SIP":{"V":1,"CMD":[{"OC":1315}]}})");
  ASSERT_TRUE(limits["DA"].IsObject());
  EXPECT_EQ(limits["DA"]["RAW"].Size(), 4u);
  // Several commands in one record are answered one by one.
  Reply(R"({"SIP":{"V":1,"CMD":[{"OC":770},{"OC":1}]}})");
  EXPECT_EQ(reply_["SIP"]["CMD"][1]["ST"].GetUint(), 4u);
}

TEST_F(ResponderTest, UnknownAddressesAndWrongCabinetGetAnErrorWithoutData) {
  Load(R"({"cabinet": 2, "unknownStatus": 33, "fans": [{"rpm": 1}]})");
  const rapidjson::Value& unknown = Reply(R"({"SIP":{"V":1,"CMD":[{"OC":770,"OI":1,"CA":2}]}})");
  EXPECT_EQ(unknown["ST"].GetUint(), 33u);
  EXPECT_FALSE(unknown.HasMember("DA"));
  EXPECT_EQ(Reply(R"({"SIP":{"V":1,"CMD":[{"OC":770,"CA":2}]}})")["ST"].GetUint(), 0u);
  const rapidjson::Value& wrongCabinet = Reply(R"({"SIP":{"V":1,"CMD":[{"OC":770,"CA":0}]}})");
  EXPECT_EQ(wrongCabinet["ST"].GetUint(), 33u);
  EXPECT_FALSE(wrongCabinet.HasMember("DA"));
  EXPECT_EQ(Reply(R"({"SIP":{"V":1,"CMD":[{"OC":57860}]}})")["DA"].GetUint(), 2u);
  // A request the daemon cannot address at all still gets a well-formed reply.
  for (const char* junk : {"", "not json", "[1]", R"({"SIP":{"V":1}})", R"({"SIP":{"V":1,"CMD":{}}})"}) {
    EXPECT_EQ(Responder(profile_).Respond(junk, 1).reply, R"({"SIP":{"V":1,"CMD":[]}})") << junk;
  }
}

TEST_F(ResponderTest, InitChannelRepliesWithOwnDescriptorAndMarksEventChannels) {
  Load("{}");
  std::string name = "[";
  for (char c : std::string("Zentrix")) name += std::to_string(int(c)) + ",";
  std::string raw = name + "0,0]";
  const rapidjson::Value& init =
      Reply(R"({"SIP":{"V":1,"CMD":[{"OC":65440,"OE":4608,"CA":0,"DA":{"RAW":)" + raw + "}}]}}", 0x01020304);
  EXPECT_EQ(init["ST"].GetUint(), 0u);
  const rapidjson::Value& block = init["DA"]["RAW"];
  ASSERT_EQ(block.Size(), 218u);
  EXPECT_EQ(block[0].GetUint(), unsigned('Z'));
  EXPECT_EQ(block[6].GetUint(), unsigned('x'));
  EXPECT_EQ(block[65].GetUint(), 4u);
  EXPECT_EQ(block[66].GetUint(), 3u);
  EXPECT_EQ(block[68].GetUint(), 1u);
  EXPECT_EQ(block[69].GetUint(), 0u);
  EXPECT_TRUE(outcome_.registersEventChannel);
  Reply(R"({"SIP":{"V":1,"CMD":[{"OC":65440,"OE":4352,"CA":0}]}})");
  EXPECT_FALSE(outcome_.registersEventChannel);
}

TEST_F(ResponderTest, StatusResetClearsDriverMonitorWarningsUnlessOverridden) {
  Load(R"({"driverMonitor": [{"status": 1}, {"status": 2}, {"status": 3}, {"status": 4}]})");
  const rapidjson::Value& reset = Reply(R"({"SIP":{"V":1,"CMD":[{"OC":6154,"DA":1,"ST":0,"CA":0}]}})");
  EXPECT_EQ(reset["ST"].GetUint(), 0u);
  EXPECT_TRUE(reset["DA"].IsNumber());
  EXPECT_TRUE(outcome_.clearedStatus);
  for (uint32_t i : {0u, 1u, 2u}) EXPECT_EQ(profile_.values.Find({0x1801, 0, i})->data, "1") << i;
  EXPECT_EQ(profile_.values.Find({0x1801, 0, 3})->data, "4");  // "not present" is not a stored status

  Profile refusing;
  std::string error;
  ASSERT_TRUE(Profile::Parse(R"({"driverMonitor": [{"status": 3}], "overrides": [{"OC": 6154, "ST": 21}]})",
                             refusing, error));
  Outcome outcome = Responder(refusing).Respond(R"({"SIP":{"V":1,"CMD":[{"OC":6154,"DA":1,"ST":0,"CA":0}]}})", 1);
  EXPECT_FALSE(outcome.clearedStatus);
  EXPECT_EQ(outcome.reply, R"({"SIP":{"V":1,"CMD":[{"OC":6154,"CA":0,"ST":21}]}})");
  EXPECT_EQ(refusing.values.Find({0x1801, 0, 0})->data, "3");
}

}  // namespace
}  // namespace agentsim
