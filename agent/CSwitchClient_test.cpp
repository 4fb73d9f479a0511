#include "agent/CSwitchClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/TestSupport.h"

namespace {

SipJson& Fill(SipJson& record, unsigned oi) {
  SipJson::SetCmdElemValue(record.GetCmd(), "OI", oi, true);
  return record;
}

// A scratch system with the daemon binary, its pid file, the classic socket
// and a scripted JSON request socket answering with answer_'s reply text.
class SwitchClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.writeFile("/usr/sbin/omad", "");
    root_.writeFile("/var/run/omad.pid", "42\n");
    classic_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omads"));
    request_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadsj"), [this](const std::string& text) {
      if (FakeAgentDaemon::IsInit(text)) return FakeAgentDaemon::InitOnly(text);
      std::lock_guard<std::mutex> lock(mutex_);
      return Framed(answer_(text));
    });
  }
  void Answer(std::function<std::string(const std::string&)> answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(answer);
  }
  void Answer(const std::string& text) { Answer([text](const std::string&) { return text; }); }

  ScopedSystemRoot root_;
  std::mutex mutex_;
  std::function<std::string(const std::string&)> answer_;
  std::unique_ptr<FakeAgentDaemon> classic_, request_;
};

TEST_F(SwitchClientTest, RequestsReturnTheReplyStatus) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  SipJson record;
  Answer(Sip("{\"ST\":12}"));
  EXPECT_EQ(client.Request(record, 5), 12u);
  // Unusable replies, and a kept one without a status, read as 22.
  for (const std::string& text : {Sip("{\"DA\":1}"), std::string("garbage"), std::string("[1,2]")}) {
    Answer(text);
    EXPECT_EQ(client.Request(Fill(record, 0), 5), 22u) << text;
  }

  // The cabinet number is asked for with the code alone; a failure keeps it.
  Answer(Sip("{\"OC\":57860,\"ST\":4}"));
  unsigned cabinet = 99;
  EXPECT_FALSE(client.GetServerCabinetNumber(cabinet));
  EXPECT_EQ(cabinet, 99u);

  // Attachments are counted; the last detach closes the channel, and a
  // detached client's request reads 19 (no channel).
  ASSERT_TRUE(client.Attach(""));
  const int fd = client.GetRequestFd();
  client.Detach();
  EXPECT_EQ(client.GetRequestFd(), fd);
  client.Detach();
  client.Detach();  // one too many: nothing happens
  EXPECT_EQ(client.GetAttachCount(), 0u);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(client.Request(Fill(record, 0), 5), 19u);
  EXPECT_EQ(record.GetCmdElemValue(0, "ST", 0), 19u);
  EXPECT_EQ(request_->requests().size(), 6u) << "one channel, registered once";
}

TEST_F(SwitchClientTest, ConcurrentRequestsDoNotInterleave) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  // Echo the object index so each caller can check it got its own answer.
  Answer([](const std::string& text) {
    const auto at = text.find("\"OI\":") + 5;
    return Sip("{\"ST\":0,\"DA\":" + text.substr(at, text.find_first_of(",}", at) - at) + "}");
  });
  int mismatches[2] = {0, 0};
  auto worker = [&](int n) {
    for (unsigned i = 1000u * (n + 1); i < 1000u * (n + 1) + 40; ++i) {
      SipJson record;
      unsigned value = 0;
      if (client.Request(Fill(record, i), 5) != 0 || !record.GetCmdUIntData(0, value) || value != i) ++mismatches[n];
    }
  };
  std::thread other(worker, 1);
  worker(0);
  other.join();
  EXPECT_EQ(mismatches[0] + mismatches[1], 0);
}

TEST_F(SwitchClientTest, AttachFailuresLeaveTheirErrors) {
  const struct {
    const char* server;
    std::function<void()> breakSystem;
    unsigned code;
    const char* text;
  } cases[] = {
      {"remotehost", [] {}, 22, "Remote connection not supported"},
      // Classic socket up, JSON socket gone.
      {nullptr, [this] { request_.reset(); unlink(CSystemRoot::Path("/dev/omadsj").c_str()); }, 92,
       "JSON interface not supported by omad"},
      // Daemon stopped: no pid file, no socket. No error code by design.
      {nullptr, [this] { classic_.reset(); unlink(CSystemRoot::Path("/var/run/omad.pid").c_str()); }, 0, "NO ERROR"},
      {nullptr, [] { unlink(CSystemRoot::Path("/usr/sbin/omad").c_str()); }, 6, "No omad service installed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    c.breakSystem();
    CSwitchClient client;
    EXPECT_FALSE(client.Attach(c.server));
    EXPECT_EQ(client.GetAttachCount(), 0u);
    EXPECT_EQ(client.GetLastError(), c.code);
    std::string text;
    EXPECT_EQ(client.GetLastErrorMsg(text), c.text);
    EXPECT_EQ(text, c.text);
  }
}

TEST_F(SwitchClientTest, WaitForServiceFollowsTheAllowance) {
  // The allowance (nullptr: unset), whether the event socket listens, the
  // terminate pipe is signalled up front, the preferred binary is installed
  // (the alternative does not count here); the result and the longest wait.
  const struct {
    const char* maxWait;
    bool listening, terminate, binary, expected;
    int seconds;
  } cases[] = {
      {"1", true, false, true, false, 0},   {"0", true, false, true, false, 0},     {"abc", true, false, true, false, 0},
      {"-5", true, false, true, false, 0},  {"", true, false, true, true, 3},       {nullptr, true, false, true, true, 3},
      {"2", false, false, true, false, 3},  {"600", true, true, true, false, 0},    {"", true, false, false, false, 0},
  };
  root_.writeFile("/usr/sbin/oasd", "");
  ScopedEnv env;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.maxWait ? c.maxWait : "unset") + (c.terminate ? " terminated" : "") +
                 (c.binary ? "" : " no binary"));
    env.set(CSwitchClient::kMaxWaitVariable, c.maxWait);
    if (c.binary) root_.writeFile("/usr/sbin/omad", "");
    else unlink(CSystemRoot::Path("/usr/sbin/omad").c_str());
    std::unique_ptr<FakeAgentDaemon> events;
    if (c.listening) events = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadaj"));
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    if (c.terminate) { ASSERT_EQ(write(pipeFds[1], "WAKE", 4), 4); }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CSwitchClient().WaitForServiceAvailable(pipeFds[0]), c.expected);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(c.seconds * 1000 + 500));
    close(pipeFds[0]);
    close(pipeFds[1]);
  }
}

}  // namespace
