#include "agent/CSwitchClient.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "agent/SipJson.h"
#include "tests/support/AgentSimulator.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string Frame(const std::string& text) {
  uint32_t length = static_cast<uint32_t>(text.size() + 1);
  std::string frame(reinterpret_cast<const char*>(&length), sizeof length);
  frame += text;
  frame.push_back('\0');
  return frame;
}

std::string EventText(unsigned oc, unsigned oi) {
  return "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":" + std::to_string(oc) + ",\"OI\":" + std::to_string(oi) +
         ",\"ST\":0,\"DA\":{\"RAW\":[1]}}]}}";
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = 10000ms) {
  auto end = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

// A scripted stand-in for the daemon under a scratch system root: the
// binary and pid file exist, the three sockets accept, every received frame
// gets a short "ok" reply, and the test pushes raw bytes down the event
// channels. Lets a test produce frames no well-behaved daemon sends.
class FakeDaemon {
 public:
  FakeDaemon() {
    root_.writeFile("/usr/sbin/omad", "");
    root_.makeDirs("/dev");
    Up();
    server_ = std::thread([this] { Serve(); });
  }
  ~FakeDaemon() {
    stop_.store(true);
    server_.join();
    Down();
  }

  // Daemon present: pid file and listening sockets.
  void Up() {
    std::lock_guard<std::mutex> lock(mutex_);
    root_.writeFile("/var/run/omad.pid", "1\n");
    for (const char* name : {"/dev/omads", "/dev/omadsj", "/dev/omadaj"}) {
      Listener l;
      l.path = root_.root() + name;
      l.events = std::strcmp(name, "/dev/omadaj") == 0;
      l.fd = Listen(l.path);
      listeners_.push_back(l);
    }
  }
  // Daemon gone: pid file and sockets removed, every connection dropped.
  void Down() {
    std::lock_guard<std::mutex> lock(mutex_);
    unlink((root_.root() + "/var/run/omad.pid").c_str());
    for (auto& l : listeners_) {
      close(l.fd);
      unlink(l.path.c_str());
    }
    listeners_.clear();
    for (auto& c : connections_) close(c.fd);
    connections_.clear();
  }

  // Number of event channels registered so far (init frames received on
  // the event socket), over the fake's whole life.
  int Registrations() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return registrations_;
  }
  // Raw bytes down the newest registered event channel.
  bool Push(const std::string& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = connections_.rbegin(); it != connections_.rend(); ++it) {
      if (!it->events || !it->registered) continue;
      return write(it->fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    return false;
  }
  // Closes the newest registered event channel (the daemon side of it).
  void DropEventChannel() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = connections_.rbegin(); it != connections_.rend(); ++it) {
      if (it->events && it->registered) {
        close(it->fd);
        connections_.erase(std::next(it).base());
        return;
      }
    }
  }

 private:
  struct Listener {
    std::string path;
    int fd = -1;
    bool events = false;
  };
  struct Connection {
    int fd = -1;
    bool events = false;
    bool registered = false;
  };

  static int Listen(const std::string& path) {
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(fd, 16) != 0) {
      ADD_FAILURE() << "cannot listen on " << path;
    }
    return fd;
  }

  void Serve() {
    while (!stop_.load()) {
      std::vector<pollfd> fds;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& l : listeners_) fds.push_back({l.fd, POLLIN, 0});
        for (auto& c : connections_) fds.push_back({c.fd, POLLIN, 0});
      }
      if (poll(fds.data(), fds.size(), 20) <= 0) continue;
      std::lock_guard<std::mutex> lock(mutex_);
      for (const pollfd& p : fds) {
        if ((p.revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
        Serve(p.fd);
      }
    }
  }

  // Called with mutex_ held; the descriptor may have been closed by the
  // test meanwhile, so it is looked up again first.
  void Serve(int fd) {
    for (auto& l : listeners_) {
      if (l.fd != fd) continue;
      int c = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (c >= 0) connections_.push_back({c, l.events, false});
      return;
    }
    for (auto it = connections_.begin(); it != connections_.end(); ++it) {
      if (it->fd != fd) continue;
      uint32_t length = 0;
      std::string payload;
      bool ok = read(fd, &length, sizeof length) == sizeof length && length < 65536;
      if (ok) {
        payload.resize(length);
        size_t got = 0;
        while (ok && got < length) {
          ssize_t n = read(fd, &payload[got], length - got);
          ok = n > 0;
          if (ok) got += static_cast<size_t>(n);
        }
      }
      if (!ok) {
        close(fd);
        connections_.erase(it);
        return;
      }
      std::string reply = Frame("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":65440,\"ST\":0}]}}");
      if (write(fd, reply.data(), reply.size()) < 0) ADD_FAILURE() << "reply not written";
      if (it->events && !it->registered) {
        it->registered = true;
        ++registrations_;
      }
      return;
    }
  }

  ScopedSystemRoot root_;
  mutable std::mutex mutex_;
  std::vector<Listener> listeners_;
  std::vector<Connection> connections_;
  int registrations_ = 0;
  std::atomic<bool> stop_{false};
  std::thread server_;
};

// What the handlers saw, shared with the event thread.
struct Recorder {
  std::mutex mutex;
  std::vector<std::string> calls;  // "<handler>:<OI>"
  void Add(const std::string& who, SipJson& event) {
    std::lock_guard<std::mutex> lock(mutex);
    calls.push_back(who + ":" + std::to_string(event.GetCmdElemValue(0, "OI", 0)));
  }
  size_t Count() {
    std::lock_guard<std::mutex> lock(mutex);
    return calls.size();
  }
  std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> lock(mutex);
    return calls;
  }
};

void HandlerA(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("A", event); }
void HandlerB(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("B", event); }
void HandlerC(SipJson& event, void* context) { static_cast<Recorder*>(context)->Add("C", event); }

// Registers HandlerB from inside the callback and removes itself.
void HandlerSwapsToB(SipJson& event, void* context);
CSwitchClient* g_SwapClient = nullptr;
void HandlerSwapsToB(SipJson& event, void* context) {
  static_cast<Recorder*>(context)->Add("S", event);
  g_SwapClient->RegisterEventHandler(HandlerB, context);
  g_SwapClient->UnregisterEventHandler(HandlerSwapsToB);
}

class EventChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("OV_MAXWAIT_FOR_OMAD", "20", 1);
    client_.SetApplicationName("event-test");
  }
  void TearDown() override {
    client_.EnableEvents(false);
    unsetenv("OV_MAXWAIT_FOR_OMAD");
  }

  bool EventArrives(size_t count) {
    return WaitFor([&] { return recorder_.Count() >= count; });
  }

  FakeDaemon daemon_;
  Recorder recorder_;
  CSwitchClient client_;  // last: its event thread ends before the rest goes
};

}  // namespace

TEST_F(EventChannelTest, EveryHandlerGetsEachEventInMapOrder) {
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerC, &recorder_));
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerA, &recorder_));
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerB, nullptr));
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerB, &recorder_)) << "a second registration replaces the context";
  EXPECT_FALSE(client_.RegisterEventHandler(nullptr, &recorder_));
  ASSERT_TRUE(client_.EnableEvents(true));
  EXPECT_TRUE(client_.EventsEnabled());
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));

  ASSERT_TRUE(daemon_.Push(Frame(EventText(0x1234, 7))));
  ASSERT_TRUE(EventArrives(3));

  // The map is ordered by the handler's address.
  std::vector<std::pair<CTesselClientEventIf::EventHandler, std::string>> byAddress = {
      {HandlerA, "A:7"}, {HandlerB, "B:7"}, {HandlerC, "C:7"}};
  std::sort(byAddress.begin(), byAddress.end(), [](const auto& l, const auto& r) {
    return std::less<CTesselClientEventIf::EventHandler>()(l.first, r.first);
  });
  std::vector<std::string> expected;
  for (auto& entry : byAddress) expected.push_back(entry.second);
  EXPECT_EQ(recorder_.Calls(), expected);

  EXPECT_TRUE(client_.UnregisterEventHandler(HandlerC));
  EXPECT_FALSE(client_.UnregisterEventHandler(HandlerC)) << "already gone";
  ASSERT_TRUE(daemon_.Push(Frame(EventText(0x1234, 8))));
  ASSERT_TRUE(EventArrives(5));
  std::this_thread::sleep_for(50ms);
  auto calls = recorder_.Calls();
  EXPECT_EQ(calls.size(), 5u);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "C:8"), 0);
}

TEST_F(EventChannelTest, EnablingTwiceRunsOneThreadAndDisablingStopsIt) {
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerA, &recorder_));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() >= 1; }));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(daemon_.Registrations(), 1) << "the second enable registered another channel";

  ASSERT_TRUE(daemon_.Push(Frame(EventText(1, 1))));
  ASSERT_TRUE(EventArrives(1));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(recorder_.Count(), 1u) << "one event, one call: a second thread would read or duplicate";

  EXPECT_TRUE(client_.EventThreadRunning());
  EXPECT_TRUE(client_.EnableEvents(false));
  EXPECT_FALSE(client_.EventsEnabled());
  EXPECT_FALSE(client_.EventThreadRunning());
  EXPECT_TRUE(client_.JsonDisableEvents()) << "disabling twice is harmless";

  // And it can be enabled again afterwards.
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 2; }));
  ASSERT_TRUE(daemon_.Push(Frame(EventText(1, 2))));
  ASSERT_TRUE(EventArrives(2));
}

TEST_F(EventChannelTest, HandlerMayChangeTheHandlerMapFromInsideACallback) {
  g_SwapClient = &client_;
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerSwapsToB, &recorder_));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));

  ASSERT_TRUE(daemon_.Push(Frame(EventText(2, 1))));
  ASSERT_TRUE(EventArrives(1)) << "deadlock in the callback";
  ASSERT_TRUE(daemon_.Push(Frame(EventText(2, 2))));
  ASSERT_TRUE(EventArrives(2));
  std::this_thread::sleep_for(50ms);
  auto calls = recorder_.Calls();
  // HandlerB may or may not run for the first event depending on its
  // address relative to HandlerSwapsToB; the second event goes to B only.
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls.front(), "S:1");
  EXPECT_EQ(calls.back(), "B:2");
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "S:2"), 0);

  // The main thread can still take the lock afterwards.
  EXPECT_TRUE(client_.UnregisterEventHandler(HandlerB));
}

TEST_F(EventChannelTest, BrokenFramesLoseOnlyThemselves) {
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerA, &recorder_));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));

  // Zero length, text that is no command record, an empty envelope: each is
  // dropped and the channel kept.
  ASSERT_TRUE(daemon_.Push(std::string(4, '\0')));
  ASSERT_TRUE(daemon_.Push(Frame("not json at all")));
  ASSERT_TRUE(daemon_.Push(Frame("{\"SIP\":{\"V\":1,\"CMD\":[]}}")));
  ASSERT_TRUE(daemon_.Push(Frame(EventText(3, 1))));
  ASSERT_TRUE(EventArrives(1));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(recorder_.Calls(), std::vector<std::string>{"A:1"});
  EXPECT_EQ(daemon_.Registrations(), 1);

  // A frame cut short by the peer: the channel is reopened and the next
  // event comes through the new one.
  std::string cut = Frame(EventText(3, 2));
  ASSERT_TRUE(daemon_.Push(cut.substr(0, 12)));
  daemon_.DropEventChannel();
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 2; }));
  ASSERT_TRUE(daemon_.Push(Frame(EventText(3, 3))));
  ASSERT_TRUE(EventArrives(2));

  // A length no event can have: reopened without reading it.
  uint32_t huge = 0xFFFFFFF0u;
  ASSERT_TRUE(daemon_.Push(std::string(reinterpret_cast<const char*>(&huge), sizeof huge) + "xx"));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 3; }));
  ASSERT_TRUE(daemon_.Push(Frame(EventText(3, 4))));
  ASSERT_TRUE(EventArrives(3));
  EXPECT_EQ(recorder_.Calls(), (std::vector<std::string>{"A:1", "A:3", "A:4"}));
}

TEST_F(EventChannelTest, DaemonRestartIsSurvived) {
  ASSERT_TRUE(client_.RegisterEventHandler(HandlerA, &recorder_));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));

  daemon_.Down();
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(client_.EventThreadRunning()) << "the thread must wait for the daemon, not end";
  daemon_.Up();
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 2; })) << "no re-registration";
  ASSERT_TRUE(daemon_.Push(Frame(EventText(4, 1))));
  ASSERT_TRUE(EventArrives(1));
}

TEST_F(EventChannelTest, DisableWakesTheThreadWhileItWaitsForTheDaemon) {
  setenv("OV_MAXWAIT_FOR_OMAD", "600", 1);
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));
  daemon_.Down();
  std::this_thread::sleep_for(300ms);  // the thread is now in its 2-second wait
  ASSERT_TRUE(client_.EventThreadRunning());

  auto start = Clock::now();
  EXPECT_TRUE(client_.EnableEvents(false));
  auto took = Clock::now() - start;
  EXPECT_FALSE(client_.EventThreadRunning());
  // Without the wake-up the thread would sit out its check period and the
  // bounded wait of several seconds.
  EXPECT_LT(took, 1500ms);
}

TEST_F(EventChannelTest, DisableWakesTheThreadInTheMiddleOfAFrame) {
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));
  ASSERT_TRUE(daemon_.Push(Frame(EventText(5, 1)).substr(0, 10)));  // and then silence
  std::this_thread::sleep_for(200ms);

  auto start = Clock::now();
  EXPECT_TRUE(client_.EnableEvents(false));
  EXPECT_LT(Clock::now() - start, 1500ms);
  EXPECT_FALSE(client_.EventThreadRunning());
}

TEST_F(EventChannelTest, ThreadEndsWhenTheDaemonStaysAway) {
  setenv("OV_MAXWAIT_FOR_OMAD", "1", 1);  // below one check period: give up at once
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));
  daemon_.Down();
  ASSERT_TRUE(WaitFor([&] { return !client_.EventThreadRunning(); }));
  EXPECT_TRUE(client_.EventsEnabled()) << "stays enabled until disabled";
  EXPECT_TRUE(client_.EnableEvents(false));
}

TEST_F(EventChannelTest, LastDetachDisablesEvents) {
  ASSERT_TRUE(client_.Attach(nullptr));
  ASSERT_TRUE(client_.Attach(""));
  ASSERT_TRUE(client_.EnableEvents(true));
  ASSERT_TRUE(WaitFor([&] { return daemon_.Registrations() == 1; }));
  client_.Detach();
  EXPECT_TRUE(client_.EventsEnabled()) << "one attachment is left";
  client_.Detach();
  EXPECT_FALSE(client_.EventsEnabled());
  EXPECT_FALSE(client_.EventThreadRunning());
}

TEST(EventChannelWithoutDaemonTest, EnableFailsCleanlyAndGetEventRejectsBadDescriptors) {
  CSwitchClient client;
  SipJson event;
  EXPECT_EQ(client.JsonGetEvent(event, -1, "x"), -1);

  // A peer that closes before sending anything: the event is lost.
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  close(pair[1]);
  EXPECT_EQ(client.JsonGetEvent(event, pair[0], "x"), -1);
  close(pair[0]);

  // A complete frame on a socket pair is read and parsed.
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  std::string frame = Frame(EventText(0x55, 9));
  ASSERT_EQ(write(pair[1], frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
  EXPECT_EQ(client.JsonGetEvent(event, pair[0], "x"), pair[0]);
  EXPECT_EQ(event.GetCmdElemValue(0, "OC", 0), 0x55u);
  EXPECT_EQ(event.GetCmdElemValue(0, "OI", 0), 9u);
  close(pair[0]);
  close(pair[1]);

  EXPECT_FALSE(client.EventsEnabled());
  EXPECT_TRUE(client.EnableEvents(false)) << "disabling what never ran";
}

// Against the agent simulator: the real daemon's event behaviour end to end.
class SimulatorEventTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("OV_MAXWAIT_FOR_OMAD", "20", 1);
    client_ = std::make_unique<CSwitchClient>();
    client_->SetApplicationName("event-sim-test");
    ASSERT_TRUE(client_->RegisterEventHandler(HandlerA, &recorder_));
    ASSERT_TRUE(client_->EnableEvents(true));
    ASSERT_TRUE(sim_.waitForEventChannels(1));
  }
  void TearDown() override {
    client_.reset();
    unsetenv("OV_MAXWAIT_FOR_OMAD");
  }
  bool Push(unsigned oi) {
    return sim_.control("event {\"OC\":770,\"OI\":" + std::to_string(oi) + ",\"CA\":0,\"ST\":0,\"DA\":1}");
  }

  AgentSimulator sim_;
  Recorder recorder_;
  std::unique_ptr<CSwitchClient> client_;
};

TEST_F(SimulatorEventTest, EventsFlowAgainAfterADaemonRestart) {
  ASSERT_TRUE(Push(1));
  ASSERT_TRUE(WaitFor([&] { return recorder_.Count() == 1; }));

  ASSERT_TRUE(sim_.restart());
  ASSERT_TRUE(sim_.waitForEventChannels(1)) << "the client did not register again";
  ASSERT_TRUE(Push(2));
  ASSERT_TRUE(WaitFor([&] { return recorder_.Count() == 2; }));
  EXPECT_EQ(recorder_.Calls(), (std::vector<std::string>{"A:1", "A:2"}));
}

TEST_F(SimulatorEventTest, MalformedFramesAreDroppedAndLaterEventsArrive) {
  ASSERT_TRUE(sim_.control("event-raw-zero"));
  ASSERT_TRUE(sim_.control("event-raw-garbage"));
  ASSERT_TRUE(sim_.control("event-text {\"SIP\":{\"V\":2,\"CMD\":[{\"OC\":1}]}}"));
  ASSERT_TRUE(Push(1));
  ASSERT_TRUE(WaitFor([&] { return recorder_.Count() >= 1; }));

  // Half a frame and silence: after its bounded passes the client reopens
  // the channel rather than waiting for ever.
  ASSERT_TRUE(sim_.control("event-raw-truncated"));
  ASSERT_TRUE(WaitFor([&] { return sim_.query("status").find("event-channels=0") != std::string::npos; }, 20000ms));
  ASSERT_TRUE(sim_.waitForEventChannels(1));
  ASSERT_TRUE(Push(2));
  ASSERT_TRUE(WaitFor([&] { return recorder_.Count() >= 2; }));
  EXPECT_EQ(recorder_.Calls(), (std::vector<std::string>{"A:1", "A:2"}));
}
