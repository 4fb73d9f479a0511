// Events pushed to registered channels, and the daemon going away and coming
// back while clients hold connections.
#include <signal.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "TestClient.h"
#include "tests/support/AgentSimulator.h"

namespace {

bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

unsigned EventOc(const std::optional<std::string>& frame) {
  if (!frame) return 0;
  auto document = ParseReply(*frame);
  const auto& command = FirstCommand(document);
  return command.IsObject() && command.HasMember("OC") && command["OC"].IsUint() ? command["OC"].GetUint() : 0;
}

class AgentSimEventsTest : public ::testing::Test {
 protected:
  // An event channel registered the way the product's event thread does it.
  std::unique_ptr<TestClient> Register() {
    auto channel = std::make_unique<TestClient>(sim_.path("/dev/omadaj"));
    EXPECT_TRUE(channel->Connected());
    auto reply = ParseReply(channel->Init(0x1200));
    EXPECT_EQ(FirstCommand(reply)["ST"].GetUint(), 0u);
    return channel;
  }

  AgentSimulator sim_;
};

TEST_F(AgentSimEventsTest, ProfileEventsReachOnlyRegisteredChannels) {
  auto first = Register();
  auto second = Register();
  TestClient unregistered(sim_.path("/dev/omadaj"));
  TestClient requests(sim_.path("/dev/omadsj"));
  requests.Init(0x1100);
  ASSERT_TRUE(sim_.waitForEventChannels(2));

  // typical.json lists fan speed, temperature, PSU status and overall status changes, in turn.
  const unsigned expected[] = {0x0302, 0x0402, 0x0501, 0x2301, 0x0302};
  for (unsigned oc : expected) {
    ASSERT_EQ(sim_.query("event"), "ok sent=2");
    EXPECT_EQ(EventOc(first->ReadFrame()), oc);
    EXPECT_EQ(EventOc(second->ReadFrame()), oc);
  }
  auto text = second->ReadFrame(0);
  EXPECT_FALSE(text.has_value());
  EXPECT_EQ(unregistered.ReadSome(100), "");
  EXPECT_EQ(requests.ReadSome(0), "");

  ASSERT_EQ(sim_.query(R"(event {"OC":769,"OI":3,"CA":0,"ST":0,"DA":2})"), "ok sent=2");
  EXPECT_EQ(first->ReadFrame().value_or(""), R"({"SIP":{"V":1,"CMD":[{"OC":769,"OI":3,"CA":0,"ST":0,"DA":2}]}})");
  ASSERT_EQ(sim_.query("event-text anything at all"), "ok sent=2");
  EXPECT_EQ(first->ReadFrame().value_or(""), "anything at all");

  kill(sim_.pid(), SIGUSR1);
  EXPECT_EQ(EventOc(first->ReadFrame()), 0x0402u);

  second.reset();  // a client that goes away is simply dropped
  EXPECT_EQ(sim_.query("event-text x").substr(0, 9), "ok sent=1");
}

TEST_F(AgentSimEventsTest, MalformedEventFramesOnDemand) {
  auto channel = Register();
  ASSERT_TRUE(sim_.waitForEventChannels(1));

  ASSERT_EQ(sim_.query("event-raw-zero"), "ok sent=1");
  EXPECT_EQ(channel->ReadBytes(4, 2000), std::string(4, '\0'));

  ASSERT_EQ(sim_.query("event-raw-garbage"), "ok sent=1");
  auto garbage = channel->ReadFrame();
  ASSERT_TRUE(garbage.has_value());
  EXPECT_TRUE(ParseReply(*garbage).HasParseError());

  ASSERT_EQ(sim_.query("event-raw-truncated"), "ok sent=1");
  std::string part = channel->ReadSome(2000);
  ASSERT_GE(part.size(), 4u);
  EXPECT_GT(TestClient::LengthOf(part) + 4, part.size()) << "the length must promise more than comes";
  EXPECT_EQ(channel->ReadSome(200), "");
  EXPECT_FALSE(channel->ClosedByPeer(100));

  ASSERT_EQ(sim_.query("event-close"), "ok closed=1");
  EXPECT_TRUE(channel->ClosedByPeer(2000));
  EXPECT_NE(sim_.query("status").find(" event-channels=0 "), std::string::npos);
}

TEST(AgentSimTimedEventsTest, PushesOnTheIntervalFromTheCommandLine) {
  AgentSimulator sim(AgentSimulator::Options{"degraded", {"--event-interval", "30"}, false, 10000});
  TestClient channel(sim.path("/dev/omadaj"));
  channel.Init(0x1200);
  EXPECT_NE(EventOc(channel.ReadFrame(3000)), 0u);
  EXPECT_NE(EventOc(channel.ReadFrame(3000)), 0u);
  ASSERT_TRUE(sim.control("event-interval 0"));
  while (channel.ReadFrame(100)) {
  }  // drain what was already under way
  EXPECT_FALSE(channel.ReadFrame(200).has_value());
}

TEST_F(AgentSimEventsTest, StopDropsClientsAndStartServesAgain) {
  auto channel = Register();
  TestClient requests(sim_.path("/dev/omadsj"));
  ASSERT_TRUE(sim_.waitForEventChannels(1));

  ASSERT_TRUE(sim_.stop());
  EXPECT_FALSE(sim_.running());
  EXPECT_TRUE(channel->ClosedByPeer(2000));
  EXPECT_TRUE(requests.ClosedByPeer(2000));
  for (const char* gone : {"/var/run/omad.pid", "/dev/omads", "/dev/omadsj", "/dev/omadaj"})
    EXPECT_FALSE(Exists(sim_.path(gone))) << gone;
  EXPECT_TRUE(Exists(sim_.path("/usr/sbin/omad")));  // stopped, not uninstalled
  EXPECT_FALSE(TestClient(sim_.path("/dev/omadaj")).Connected());
  EXPECT_EQ(sim_.query("event"), "ok sent=0");

  ASSERT_TRUE(sim_.start());
  EXPECT_TRUE(sim_.running());
  auto again = Register();
  ASSERT_TRUE(sim_.waitForEventChannels(1));
  EXPECT_EQ(sim_.query("event"), "ok sent=1");
  EXPECT_NE(EventOc(again->ReadFrame()), 0u);
  TestClient fresh(sim_.path("/dev/omadsj"));
  EXPECT_EQ(fresh.Exchange(R"({"SIP":{"V":1,"CMD":[{"OC":57860}]}})"), R"({"SIP":{"V":1,"CMD":[{"OC":57860,"ST":0,"DA":0}]}})");

  ASSERT_TRUE(sim_.restart());
  EXPECT_TRUE(again->ClosedByPeer(2000));
  EXPECT_TRUE(Exists(sim_.path("/var/run/omad.pid")));

  // A daemon half-way up: running by its pid file, sockets not yet there.
  ASSERT_TRUE(sim_.control("stop-sockets"));
  EXPECT_TRUE(Exists(sim_.path("/var/run/omad.pid")));
  EXPECT_FALSE(Exists(sim_.path("/dev/omadsj")));
  ASSERT_TRUE(sim_.control("uninstall"));
  EXPECT_FALSE(Exists(sim_.path("/usr/sbin/omad")));
  ASSERT_TRUE(sim_.control("install"));
  ASSERT_TRUE(sim_.control("start"));
  EXPECT_TRUE(Exists(sim_.path("/usr/sbin/omad")));
  EXPECT_TRUE(TestClient(sim_.path("/dev/omads")).Connected());
}

}  // namespace
