#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/AgentSimulator.h"
#include "tests/support/FakeAgentDaemon.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string Event(unsigned oi) {
  return FakeAgentDaemon::Frame("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":4660,\"OI\":" + std::to_string(oi) +
                                ",\"ST\":0,\"DA\":{\"RAW\":[1]}}]}}");
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = 10000ms) {
  const auto end = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

// What the handlers saw, shared with the event thread.
struct Recorder {
  std::mutex mutex;
  std::vector<std::string> calls;  // "<handler>:<OI>"
  void Add(const std::string& who, SipJson& event) {
    std::lock_guard<std::mutex> lock(mutex);
    calls.push_back(who + ":" + std::to_string(event.GetCmdElemValue(0, "OI", 0)));
  }
  std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> lock(mutex);
    return calls;
  }
  bool Reaches(size_t count) {
    return WaitFor([&] { return Calls().size() >= count; });
  }
};

void HandlerA(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("A", event); }
void HandlerB(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("B", event); }
void HandlerC(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("C", event); }

// Registers HandlerB from inside the callback and removes itself.
CSwitchClient* g_SwapClient = nullptr;
void HandlerSwapsToB(SipJson& event, void* context) {
  static_cast<Recorder*>(context)->Add("S", event);
  g_SwapClient->RegisterEventHandler(HandlerB, context);
  g_SwapClient->UnregisterEventHandler(HandlerSwapsToB);
}

// A scratch system whose three daemon sockets are fakes; events_ is the
// event socket, through which the test pushes raw frames.
class EventChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv(CSwitchClient::kMaxWaitVariable, "20", 1);
    root_.writeFile("/usr/sbin/omad", "");
    root_.writeFile("/var/run/omad.pid", "1\n");
    root_.makeDirs("/dev");
    classic_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omads"));
    request_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadsj"));
    events_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadaj"));
    client_ = std::make_unique<CSwitchClient>();
    client_->SetApplicationName("event-test");
  }
  void TearDown() override {
    client_.reset();  // its event thread ends before the fakes go
    unsetenv(CSwitchClient::kMaxWaitVariable);
  }

  // Event channels registered so far (init commands answered).
  bool Registered(int count) {
    return WaitFor([&] { return events_->replies() >= count; }) && events_->replies() == count;
  }
  // Events on, with `handler` (if any) recording, and the channel registered.
  bool Start(CTesselClientEventIf::EventHandler handler) {
    return (!handler || client_->RegisterEventHandler(handler, &recorder_)) && client_->EnableEvents(true) &&
           Registered(1);
  }

  ScopedSystemRoot root_;
  std::unique_ptr<FakeAgentDaemon> classic_, request_, events_;
  Recorder recorder_;
  std::unique_ptr<CSwitchClient> client_;
};

TEST_F(EventChannelTest, OneThreadCallsEveryHandlerInMapOrder) {
  ASSERT_TRUE(client_->RegisterEventHandler(HandlerC, &recorder_));
  ASSERT_TRUE(client_->RegisterEventHandler(HandlerA, &recorder_));
  ASSERT_TRUE(client_->RegisterEventHandler(HandlerB, nullptr));
  ASSERT_TRUE(client_->RegisterEventHandler(HandlerB, &recorder_)) << "a second registration replaces the context";
  EXPECT_FALSE(client_->RegisterEventHandler(nullptr, &recorder_));
  ASSERT_TRUE(client_->EnableEvents(true));
  ASSERT_TRUE(client_->EnableEvents(true));
  EXPECT_TRUE(client_->EventsEnabled());
  ASSERT_TRUE(Registered(1));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(events_->replies(), 1) << "the second enable registered another channel";
  EXPECT_NE(events_->requests()[0].find("\"OC\":65440,\"OE\":4608,\"CA\":0,\"DA\":{\"RAW\":[101,118,101,110,116"),
            std::string::npos);

  ASSERT_TRUE(events_->push(Event(7)));
  ASSERT_TRUE(recorder_.Reaches(3));
  // The map is ordered by the handler's address.
  const std::map<CTesselClientEventIf::EventHandler, std::string> byAddress = {
      {HandlerA, "A:7"}, {HandlerB, "B:7"}, {HandlerC, "C:7"}};
  std::vector<std::string> expected;
  for (const auto& entry : byAddress) expected.push_back(entry.second);
  EXPECT_EQ(recorder_.Calls(), expected);

  EXPECT_TRUE(client_->UnregisterEventHandler(HandlerC));
  EXPECT_FALSE(client_->UnregisterEventHandler(HandlerC)) << "already gone";
  ASSERT_TRUE(events_->push(Event(8)));
  ASSERT_TRUE(recorder_.Reaches(5));
  std::this_thread::sleep_for(50ms);
  const auto calls = recorder_.Calls();
  EXPECT_EQ(calls.size(), 5u) << "one call per handler and event";
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "C:8"), 0);

  // Disabling stops the thread; enabling again registers a new channel.
  EXPECT_TRUE(client_->EnableEvents(false));
  EXPECT_FALSE(client_->EventsEnabled() || client_->EventThreadRunning());
  EXPECT_TRUE(client_->EnableEvents(false)) << "disabling twice is harmless";
  ASSERT_TRUE(client_->EnableEvents(true));
  ASSERT_TRUE(Registered(2));
}

TEST_F(EventChannelTest, HandlerMayChangeTheHandlerMapFromInsideACallback) {
  g_SwapClient = client_.get();
  ASSERT_TRUE(Start(HandlerSwapsToB));
  ASSERT_TRUE(events_->push(Event(1)));
  ASSERT_TRUE(recorder_.Reaches(1)) << "deadlock in the callback";
  ASSERT_TRUE(events_->push(Event(2)));
  ASSERT_TRUE(recorder_.Reaches(2));
  std::this_thread::sleep_for(50ms);
  const auto calls = recorder_.Calls();
  // HandlerB may or may not run for the first event depending on its
  // address relative to HandlerSwapsToB; the second event goes to B only.
  EXPECT_EQ(calls.front(), "S:1");
  EXPECT_EQ(calls.back(), "B:2");
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "S:2"), 0);
  // The main thread can still take the lock afterwards.
  EXPECT_TRUE(client_->UnregisterEventHandler(HandlerB));
}

TEST_F(EventChannelTest, BrokenFramesLoseOnlyThemselves) {
  ASSERT_TRUE(Start(HandlerA));
  // Zero length, text that is no command record, an empty envelope: each is
  // dropped and the channel kept.
  ASSERT_TRUE(events_->push(std::string(4, '\0')));
  ASSERT_TRUE(events_->push(FakeAgentDaemon::Frame("not json at all")));
  ASSERT_TRUE(events_->push(FakeAgentDaemon::Frame("{\"SIP\":{\"V\":1,\"CMD\":[]}}")));
  ASSERT_TRUE(events_->push(Event(1)));
  ASSERT_TRUE(recorder_.Reaches(1));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(recorder_.Calls(), std::vector<std::string>{"A:1"});
  EXPECT_EQ(events_->replies(), 1);

  // A frame cut short by the peer: the channel is reopened and the next
  // event comes through the new one.
  ASSERT_TRUE(events_->push(Event(2).substr(0, 12)));
  events_->hangUp();
  ASSERT_TRUE(Registered(2));
  ASSERT_TRUE(events_->push(Event(3)));
  ASSERT_TRUE(recorder_.Reaches(2));
  // A length no event can have: reopened without reading it.
  const uint32_t huge = 0xFFFFFFF0u;
  ASSERT_TRUE(events_->push(std::string(reinterpret_cast<const char*>(&huge), sizeof huge) + "xx"));
  ASSERT_TRUE(Registered(3));
  ASSERT_TRUE(events_->push(Event(4)));
  ASSERT_TRUE(recorder_.Reaches(3));
  EXPECT_EQ(recorder_.Calls(), (std::vector<std::string>{"A:1", "A:3", "A:4"}));
}

TEST_F(EventChannelTest, DisableWakesTheThreadWhileItWaitsForTheDaemon) {
  setenv(CSwitchClient::kMaxWaitVariable, "600", 1);
  ASSERT_TRUE(Start(nullptr));
  unlink(CSystemRoot::Path("/var/run/omad.pid").c_str());
  events_.reset();  // daemon gone: the channel ends
  std::this_thread::sleep_for(300ms);  // the thread is now in its 2-second wait
  ASSERT_TRUE(client_->EventThreadRunning()) << "the thread must wait for the daemon, not end";
  const auto start = Clock::now();
  EXPECT_TRUE(client_->EnableEvents(false));
  // Without the wake-up the thread would sit out its check period and the
  // bounded wait of several seconds.
  EXPECT_LT(Clock::now() - start, 1500ms);
  EXPECT_FALSE(client_->EventThreadRunning());
}

TEST_F(EventChannelTest, LastDetachDisablesEventsEvenInTheMiddleOfAFrame) {
  ASSERT_TRUE(client_->Attach(nullptr));
  ASSERT_TRUE(client_->Attach(""));
  ASSERT_TRUE(Start(nullptr));
  client_->Detach();
  EXPECT_TRUE(client_->EventsEnabled()) << "one attachment is left";
  ASSERT_TRUE(events_->push(Event(1).substr(0, 10)));  // and then silence
  std::this_thread::sleep_for(200ms);
  const auto start = Clock::now();
  client_->Detach();
  EXPECT_LT(Clock::now() - start, 1500ms);
  EXPECT_FALSE(client_->EventsEnabled());
  EXPECT_FALSE(client_->EventThreadRunning());
}

// Against the agent simulator: a real daemon restart, then events flow again.
TEST(SimulatorEventTest, EventsFlowAgainAfterADaemonRestart) {
  AgentSimulator sim;
  setenv(CSwitchClient::kMaxWaitVariable, "20", 1);
  Recorder recorder;
  {
    CSwitchClient client;
    ASSERT_TRUE(client.RegisterEventHandler(HandlerA, &recorder));
    ASSERT_TRUE(client.EnableEvents(true));
    ASSERT_TRUE(sim.waitForEventChannels(1));
    ASSERT_TRUE(sim.control("event {\"OC\":770,\"OI\":1,\"CA\":0,\"ST\":0,\"DA\":1}"));
    ASSERT_TRUE(recorder.Reaches(1));
    ASSERT_TRUE(sim.restart());
    ASSERT_TRUE(sim.waitForEventChannels(1)) << "the client did not register again";
    ASSERT_TRUE(sim.control("event {\"OC\":770,\"OI\":2,\"CA\":0,\"ST\":0,\"DA\":1}"));
    ASSERT_TRUE(recorder.Reaches(2));
  }
  EXPECT_EQ(recorder.Calls(), (std::vector<std::string>{"A:1", "A:2"}));
  unsetenv(CSwitchClient::kMaxWaitVariable);
}

}  // namespace
