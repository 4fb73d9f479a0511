#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/TestSupport.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string Event(unsigned oi) {
  return Framed(Sip("{\"OC\":4660,\"OI\":" + std::to_string(oi) + ",\"ST\":0,\"DA\":{\"RAW\":[1]}}"));
}

// Handler calls so far, counted from the event thread.
using Calls = std::atomic<int>;
void HandlerA(SipJson&, void* context) { ++*static_cast<Calls*>(context); }
// Asks the daemon something while the test detaches for the last time.
CSwitchClient* g_Client = nullptr;
void HandlerRequests(SipJson&, void* context) {
  ++*static_cast<Calls*>(context);
  std::this_thread::sleep_for(200ms);
  SipJson request;
  g_Client->Request(request, 5);
}

// The client's number for its event channel, as its init command told the daemon.
int ChannelFd(const std::string& init) {
  SipJson record;
  std::vector<unsigned char> block;
  record.ParseReply(init);
  return record.GetCmdDataStream(0, block) && block.size() > 65 ? block[65] : -1;
}
bool IsClosed(int fd) { return fcntl(fd, F_GETFD) == -1; }

// A scratch system whose three daemon sockets are fakes; events_ is the
// event socket, through which the test pushes raw frames.
class EventChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.writeFile("/usr/sbin/omad", "");
    root_.writeFile("/var/run/omad.pid", "1\n");
    classic_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omads"));
    request_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadsj"));
    StartEventDaemon();
    client_ = std::make_unique<CSwitchClient>();
    client_->SetApplicationName("event-test");
  }
  void TearDown() override { client_.reset(); }  // its event thread ends before the fakes go
  void StartEventDaemon() { events_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadaj")); }

  // Event channels registered so far (init commands answered).
  bool Registered(int count) {
    return WaitUntil([&] { return events_->replies() >= count; }) && events_->replies() == count;
  }
  bool Start(CTesselClientEventIf::EventHandler handler) {
    return (!handler || client_->RegisterEventHandler(handler, &calls_)) && client_->EnableEvents(true) &&
           Registered(1);
  }
  // The daemon pushes `bytes`, hangs up and removes its socket; returns the
  // client's number of the channel it broke.
  int BreakChannel(const std::string& bytes) {
    const int fd = ChannelFd(events_->requests().at(0));
    EXPECT_TRUE(events_->push(bytes));
    events_.reset();
    unlink(CSystemRoot::Path("/dev/omadaj").c_str());
    return fd;
  }
  void ExpectPrompt(const std::function<void()>& stop) {
    const auto start = Clock::now();
    stop();
    EXPECT_LT(Clock::now() - start, 1s);
  }

  ScopedEnv env_{CSwitchClient::kMaxWaitVariable, "20"};
  ScopedSystemRoot root_;
  std::unique_ptr<FakeAgentDaemon> classic_, request_, events_;
  Calls calls_{0};
  std::unique_ptr<CSwitchClient> client_;
};

// A frame cut short by a daemon that then goes away is read in ten paced
// passes before the channel is reopened. The reopen closes the old number;
// stopping ends its retries at once and never closes that number again,
// though another file of the process has it by then.
TEST_F(EventChannelTest, CutShortFrameIsReadInPassesAndItsNumberClosedOnce) {
  ASSERT_TRUE(Start(HandlerA));
  const int fd = BreakChannel(Event(1).substr(0, 12));
  ASSERT_GE(fd, 0);
  std::this_thread::sleep_for(3s);
  EXPECT_FALSE(IsClosed(fd)) << "reopened before the passes ran out";
  ASSERT_TRUE(WaitUntil([fd] { return IsClosed(fd); }));
  const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(dup2(other, fd), fd);
  close(other);
  ExpectPrompt([&] { EXPECT_TRUE(client_->EnableEvents(false)); });
  EXPECT_FALSE(IsClosed(fd)) << "the stop closed another file's descriptor";
  close(fd);
  EXPECT_EQ(calls_, 0);
}

// Deleting the client waits for its thread, which is retrying the reopen:
// the daemon that comes back afterwards hears nothing from a freed client.
TEST_F(EventChannelTest, DeletedClientNeverRegistersWithTheReturningDaemon) {
  ASSERT_TRUE(Start(nullptr));
  const int fd = BreakChannel(LengthWord(0xFFFFFFF0u));  // no event is that long: reopened unread
  ASSERT_TRUE(WaitUntil([fd] { return IsClosed(fd); }));
  client_.reset();
  StartEventDaemon();
  std::this_thread::sleep_for(1500ms);
  EXPECT_TRUE(events_->requests().empty());
}

// Ending events must not sit out a handler, a blocked read or the wait for
// the daemon.
TEST_F(EventChannelTest, DisableAndLastDetachEndTheThreadPromptly) {
  g_Client = client_.get();
  ASSERT_TRUE(client_->Attach(nullptr));
  ASSERT_TRUE(client_->Attach(""));
  ASSERT_TRUE(Start(HandlerRequests));
  client_->Detach();
  EXPECT_TRUE(client_->EventsEnabled()) << "one attachment is left";
  ASSERT_TRUE(events_->push(Event(1)));
  ASSERT_TRUE(WaitUntil([&] { return calls_ > 0; }));  // the handler runs and is about to ask
  ExpectPrompt([&] { client_->Detach(); });
  EXPECT_FALSE(client_->EventsEnabled() || client_->EventThreadRunning());

  ASSERT_TRUE(client_->EnableEvents(true));
  ASSERT_TRUE(Registered(2));
  ASSERT_TRUE(events_->push(Event(2).substr(0, 10)));  // and then silence
  std::this_thread::sleep_for(200ms);
  ExpectPrompt([&] { EXPECT_TRUE(client_->EnableEvents(false)); });

  env_.set(CSwitchClient::kMaxWaitVariable, "600");
  ASSERT_TRUE(client_->EnableEvents(true));
  ASSERT_TRUE(Registered(3));
  unlink(CSystemRoot::Path("/var/run/omad.pid").c_str());
  events_.reset();                     // daemon gone: the channel ends
  std::this_thread::sleep_for(300ms);  // the thread is now in its wait
  ASSERT_TRUE(client_->EventThreadRunning()) << "the thread must wait for the daemon, not end";
  ExpectPrompt([&] { EXPECT_TRUE(client_->EnableEvents(false)); });
  EXPECT_FALSE(client_->EventThreadRunning());
}

}  // namespace
