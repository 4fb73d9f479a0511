#include "Capture.h"

#include <gtest/gtest.h>

#include "Responder.h"
#include "tests/support/TestSupport.h"

namespace agentsim {
namespace {

// Exchanges as a relay sees them, the profile they become, and what a
// simulator loaded with that profile answers.
TEST(CaptureTest, AProfileThatAnswersAsTheAgentDid) {
  Capture capture;
  const std::string fan = Sip(R"({"OC":769,"OI":1,"CA":2})");
  auto fanReply = [](const std::string& data) { return Sip(R"({"OC":769,"OI":1,"CA":2,"ST":0,"DA":)" + data + "}"); };
  const std::pair<std::string, std::string> exchanges[] = {
      // Descriptors of this connection: not a value.
      {Sip(R"({"OC":65440,"OE":4352,"CA":0,"DA":{"RAW":[90]}})"), Sip(R"({"OC":65440,"ST":0,"DA":{"RAW":[9]}})")},
      {Sip(R"({"OC":57860})"), Sip(R"({"OC":57860,"ST":0,"DA":2})")},
      {fan, fanReply("2")}, {fan, fanReply("2")}, {fan, fanReply("1")}, {fan, fanReply("1")},
      // An accepted reset is the replaying simulator's own business.
      {Sip(R"({"OC":6154,"DA":1,"ST":0,"CA":2})"), Sip(R"({"OC":6154,"CA":2,"ST":0,"DA":1})")},
      {Sip(R"({"OC":4660,"CA":2})"), Sip(R"({"OC":4660,"CA":2,"ST":9})")},
      {Sip(R"({"OC":4661,"CA":2})"), Sip(R"({"OC":4661,"CA":2,"ST":9})")},
      {Sip(R"({"OC":4662,"CA":2})"), Sip(R"({"OC":4662,"CA":2,"ST":4})")},
      {Sip(R"({"OC":4663,"OE":7,"CA":2})"), Sip(R"({"OC":4663,"OE":7,"CA":2,"DA":"no status"})")},
      {"not json", Sip(R"({"OC":1,"ST":0,"DA":1})")},
      {Sip(R"({"OC":1})"), R"({"SIP":1})"},
  };
  for (const auto& [request, reply] : exchanges) capture.AddReply(request, reply);
  const std::string single = R"({"OC":770,"OI":2,"CA":2,"ST":0,"DA":5580})";
  const std::string record = Sip(R"({"OC":1},{"OC":2})");
  for (const std::string& event : {Sip(single), record, std::string("garbage")}) capture.AddEvent(event);

  Profile profile;
  std::string error;
  ASSERT_TRUE(Profile::Parse(capture.ToProfile("today"), profile, error)) << error << capture.ToProfile("today");
  EXPECT_EQ(profile.cabinet, 2u);
  EXPECT_EQ(profile.unknownStatus, 9u);
  EXPECT_EQ(profile.events, (std::vector<std::string>{Sip(single), record}));
  for (const Address& at : {Address{0xFFA0, 0x1100, 0}, Address{0x180A, 0, 0}, Address{1, 0, 0}})
    EXPECT_EQ(profile.values.Find(at), nullptr) << at.oc;
  ASSERT_NE(profile.values.Find({4663, 7, 0}), nullptr);
  EXPECT_EQ(profile.values.Find({4663, 7, 0})->status, 22u);  // as the client reads a missing status

  // Every answer in order, then the last one for good.
  Responder responder(profile);
  for (const char* data : {"2", "2", "1", "1", "1"}) EXPECT_EQ(responder.Respond(fan, 3).reply, fanReply(data));

  // A refused reset has to replay refused.
  capture.AddReply(Sip(R"({"OC":6154,"DA":1,"ST":0})"), Sip(R"({"OC":6154,"ST":12})"));
  ASSERT_TRUE(Profile::Parse(capture.ToProfile("today"), profile = Profile(), error)) << error;
  ASSERT_NE(profile.values.Find({0x180A, 0, 0}), nullptr);
  EXPECT_EQ(profile.values.Find({0x180A, 0, 0})->status, 12u);
}

}  // namespace
}  // namespace agentsim
