// Events pushed to registered channels, and the daemon going away and coming
// back while clients hold connections.
#include <signal.h>

#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

// typical.json's events, in turn: fan speed, temperature, PSU status, overall status.
const char* const kProfileEvents[] = {
    R"({"SIP":{"V":1,"CMD":[{"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580}]}})",
    R"({"SIP":{"V":1,"CMD":[{"OC":1026,"OI":3,"CA":0,"ST":0,"DA":53}]}})",
    R"({"SIP":{"V":1,"CMD":[{"OC":1281,"OI":1,"CA":0,"ST":0,"DA":1}]}})",
    R"({"SIP":{"V":1,"CMD":[{"OC":8961,"OE":3,"CA":0,"ST":0,"DA":1}]}})",
};

class AgentSimEventsTest : public ::testing::Test {
 protected:
  // An event channel registered with the init command, as the product's event thread does.
  std::unique_ptr<TestClient> Register() {
    auto channel = std::make_unique<TestClient>(sim_.path("/dev/omadaj"));
    EXPECT_NE(channel->Init(0x1200).find(R"("ST":0,"DA":{"RAW")"), std::string::npos);
    return channel;
  }

  AgentSimulator sim_;
};

TEST_F(AgentSimEventsTest, EventsReachOnlyRegisteredChannels) {
  auto first = Register();
  auto second = Register();
  TestClient unregistered(sim_.path("/dev/omadaj"));
  TestClient requests(sim_.path("/dev/omadsj"));
  requests.Init(0x1200);  // the event code registers only on the event socket
  ASSERT_TRUE(sim_.waitForEventChannels(2));

  for (const char* event : {kProfileEvents[0], kProfileEvents[1], kProfileEvents[2], kProfileEvents[3],
                            kProfileEvents[0]}) {  // the list starts over
    ASSERT_EQ(sim_.query("event"), "ok sent=2");
    EXPECT_EQ(first->ReadFrame().value_or(""), event);
    EXPECT_EQ(second->ReadFrame().value_or(""), event);
  }
  EXPECT_EQ(unregistered.ReadSome(100), "");
  EXPECT_EQ(requests.ReadSome(0), "");

  ASSERT_EQ(sim_.query(R"(event {"OC":769,"OI":3,"CA":0,"ST":0,"DA":2})"), "ok sent=2");
  EXPECT_EQ(first->ReadFrame().value_or(""), R"({"SIP":{"V":1,"CMD":[{"OC":769,"OI":3,"CA":0,"ST":0,"DA":2}]}})");
  ASSERT_EQ(sim_.query("event-text anything at all"), "ok sent=2");
  EXPECT_EQ(first->ReadFrame().value_or(""), "anything at all");
  kill(sim_.pid(), SIGUSR1);
  EXPECT_EQ(first->ReadFrame().value_or(""), kProfileEvents[1]);

  second.reset();  // a client that goes away is simply dropped
  EXPECT_EQ(sim_.query("event-text x"), "ok sent=1");
}

TEST_F(AgentSimEventsTest, MalformedEventFramesOnDemand) {
  auto channel = Register();
  ASSERT_TRUE(sim_.waitForEventChannels(1));
  ASSERT_EQ(sim_.query("event-raw-zero"), "ok sent=1");
  EXPECT_EQ(channel->ReadBytes(4, 2000), std::string(4, '\0'));
  ASSERT_EQ(sim_.query("event-raw-garbage"), "ok sent=1");
  EXPECT_EQ(channel->ReadFrame().value_or(""), R"({"SIP":{"V":1,"CMD":[)");

  ASSERT_EQ(sim_.query("event-raw-truncated"), "ok sent=1");
  const std::string whole = Framed(kProfileEvents[0]);
  EXPECT_EQ(channel->ReadBytes(whole.size(), 300), whole.substr(0, whole.size() / 2));
  EXPECT_FALSE(channel->ClosedByPeer(100));

  ASSERT_EQ(sim_.query("event-close"), "ok closed=1");
  EXPECT_TRUE(channel->ClosedByPeer(2000));
  EXPECT_NE(sim_.query("status").find(" event-channels=0 "), std::string::npos);
}

TEST(AgentSimTimedEventsTest, PushesOnTheIntervalFromTheCommandLine) {
  AgentSimulator sim({"typical", {"--event-interval", "30"}, false});
  TestClient channel(sim.path("/dev/omadaj"));
  channel.Init(0x1200);
  EXPECT_EQ(channel.ReadFrame(3000).value_or(""), kProfileEvents[0]);
  EXPECT_EQ(channel.ReadFrame(3000).value_or(""), kProfileEvents[1]);
}

TEST_F(AgentSimEventsTest, StopDropsClientsAndStartServesAgain) {
  auto channel = Register();
  TestClient requests(sim_.path("/dev/omadsj"));
  ASSERT_TRUE(sim_.waitForEventChannels(1));
  ASSERT_TRUE(sim_.stop());
  EXPECT_TRUE(channel->ClosedByPeer(2000));
  EXPECT_TRUE(requests.ClosedByPeer(2000));
  for (const char* gone : {"/var/run/omad.pid", "/dev/omads", "/dev/omadsj", "/dev/omadaj"})
    EXPECT_FALSE(std::filesystem::exists(sim_.path(gone))) << gone;
  EXPECT_TRUE(std::filesystem::exists(sim_.path("/usr/sbin/omad")));  // stopped, not uninstalled

  ASSERT_TRUE(sim_.start());
  auto again = Register();
  ASSERT_TRUE(sim_.waitForEventChannels(1));
  ASSERT_TRUE(sim_.restart());
  EXPECT_TRUE(again->ClosedByPeer(2000));
  EXPECT_EQ(TestClient(sim_.path("/dev/omadsj")).Exchange(Sip(R"({"OC":57860})")), Sip(R"({"OC":57860,"ST":0,"DA":0})"));

  // A daemon half-way up: running by its pid file, sockets not yet there.
  ASSERT_TRUE(sim_.control("stop-sockets"));
  EXPECT_TRUE(std::filesystem::exists(sim_.path("/var/run/omad.pid")));
  EXPECT_FALSE(std::filesystem::exists(sim_.path("/dev/omadsj")));
}

}  // namespace
