#include "agent/CSwitchClient.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/JsonChannel.h"
#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/FakeAgentDaemon.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

using Clock = std::chrono::steady_clock;
using Reply = FakeAgentDaemon::Reply;

const char* const kOkReply = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"ST\":0,\"DA\":1}]}}";

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : m_Name(name) {
    const char* old = std::getenv(name);
    m_HadOld = old != nullptr;
    if (m_HadOld) m_Old = old;
    if (value != nullptr)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (m_HadOld)
      setenv(m_Name.c_str(), m_Old.c_str(), 1);
    else
      unsetenv(m_Name.c_str());
  }

 private:
  std::string m_Name;
  bool m_HadOld = false;
  std::string m_Old;
};

// A scratch system with the daemon binary, its pid file, the classic socket
// and a scripted JSON request socket.
class SwitchClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.writeFile("/usr/sbin/omad", "");
    root_.writeFile("/var/run/omad.pid", "42\n");
    root_.makeDirs("/dev");
    classic_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omads"), [](const std::string&) { return Reply{}; });
    StartRequestSocket();
  }

  void StartRequestSocket() {
    request_ = std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadsj"), [this](const std::string& text) {
      if (FakeAgentDaemon::IsInit(text)) return FakeAgentDaemon::Whole(FakeAgentDaemon::InitReply());
      std::lock_guard<std::mutex> lock(mutex_);
      return answer_(text);
    });
  }

  void Answer(std::function<Reply(const std::string&)> answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(answer);
  }
  void AnswerText(const std::string& text) {
    Answer([text](const std::string&) { return FakeAgentDaemon::Whole(text); });
  }

  // Requests after the init command.
  std::vector<std::string> Sent() const {
    std::vector<std::string> out;
    for (const std::string& r : request_->requests())
      if (!FakeAgentDaemon::IsInit(r)) out.push_back(r);
    return out;
  }

  static void Fill(SipJson& record, unsigned oc, unsigned oi) {
    SipJson::GenericValue& cmd = record.GetCmd();
    SipJson::SetCmdElemValue(cmd, "OC", oc, false);
    SipJson::SetCmdElemValue(cmd, "OE", 0, true);
    SipJson::SetCmdElemValue(cmd, "OI", oi, true);
    SipJson::SetCmdElemValue(cmd, "CA", 0, false);
  }

  ScopedSystemRoot root_;
  std::mutex mutex_;
  std::function<Reply(const std::string&)> answer_ = [](const std::string&) {
    return FakeAgentDaemon::Whole(kOkReply);
  };
  std::unique_ptr<FakeAgentDaemon> classic_;
  std::unique_ptr<FakeAgentDaemon> request_;
};

TEST_F(SwitchClientTest, AttachIsReferenceCounted) {
  CSwitchClient client;
  ASSERT_TRUE(client.SetApplicationName("Counter"));
  ASSERT_TRUE(client.Attach(nullptr));
  ASSERT_TRUE(client.Attach(""));
  EXPECT_EQ(client.GetAttachCount(), 2u);
  const int fd = client.GetRequestFd();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(request_->connections(), 1);  // the second attach reuses the channel

  client.Detach();
  EXPECT_EQ(client.GetAttachCount(), 1u);
  SipJson record;
  Fill(record, 0x301, 0);
  EXPECT_EQ(client.Request(record, 5), 0u);

  client.Detach();
  EXPECT_EQ(client.GetAttachCount(), 0u);
  EXPECT_EQ(client.GetRequestFd(), -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  client.Detach();  // one too many: nothing happens
  EXPECT_EQ(client.GetAttachCount(), 0u);

  // A detached client has no channel: the status says so.
  SipJson late;
  Fill(late, 0x301, 0);
  EXPECT_EQ(client.Request(late, 5), 19u);
  EXPECT_EQ(late.GetCmdElemValue(0, "ST", 0), 19u);

  // The client name travelled in the init block.
  const auto all = request_->requests();
  ASSERT_FALSE(all.empty());
  EXPECT_NE(all[0].find("\"RAW\":[67,111,117,110,116,101,114,0,"), std::string::npos);
}

TEST_F(SwitchClientTest, RequestSendsTheRecordAndKeepsTheReply) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  SipJson record;
  Fill(record, 0x301, 2);
  AnswerText("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"OI\":2,\"ST\":0,\"DA\":3}]}}");
  EXPECT_EQ(client.Request(record, 5), 0u);
  unsigned value = 0;
  EXPECT_TRUE(record.GetCmdUIntData(0, value));
  EXPECT_EQ(value, 3u);
  ASSERT_EQ(Sent().size(), 1u);
  EXPECT_EQ(Sent()[0], "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"OI\":2,\"CA\":0}]}}");

  // The daemon's own status comes back as the result.
  AnswerText("{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":12}]}}");
  EXPECT_EQ(client.Request(record, 5), 12u);
}

TEST_F(SwitchClientTest, UnusableRepliesReadAsStatus22) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  std::string deep = "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0,\"DA\":";
  deep.append(100000, '[');
  deep.append(100000, ']');
  deep += "}]}}";
  for (const std::string& text :
       {std::string("{\"SIP\":{\"V\":2,\"CMD\":[{\"ST\":0,\"DA\":1}]}}"), std::string("garbage"),
        std::string("[1,2]"), deep}) {
    AnswerText(text);
    SipJson record;
    Fill(record, 0x301, 0);
    EXPECT_EQ(client.Request(record, 5), 22u) << text.substr(0, 60);
    // The record must stay serialisable for the next request.
    Fill(record, 0x302, 0);
    EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":770,\"CA\":0}]}}");
  }
  // A well-formed reply without a status is kept, but still reads as 22.
  AnswerText("{\"SIP\":{\"V\":1,\"CMD\":[{\"DA\":1}]}}");
  SipJson record;
  Fill(record, 0x301, 0);
  EXPECT_EQ(client.Request(record, 5), 22u);
  EXPECT_EQ(record.GetCmdDataType(0), 6);
}

TEST_F(SwitchClientTest, TransportFailureBecomesTheCommandStatus) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  Answer([](const std::string&) { return Reply{{}, 0, true}; });  // hang up instead of answering
  SipJson record;
  Fill(record, 0x301, 0);
  const unsigned rc = client.Request(record, 5);
  EXPECT_TRUE(rc == 5u || rc == 6u) << rc;
  EXPECT_EQ(record.GetCmdElemValue(0, "ST", 0), rc);
  EXPECT_EQ(record.GetCmdElemValue(0, "OC", 0), 0x301u);  // the request is kept
}

TEST_F(SwitchClientTest, SplitReplySucceeds) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  Answer([](const std::string&) {
    const std::string frame = FakeAgentDaemon::Frame(kOkReply);
    return Reply{{frame.substr(0, 9), frame.substr(9, 9), frame.substr(18)}, 50, false};
  });
  SipJson record;
  Fill(record, 0x301, 0);
  EXPECT_EQ(client.Request(record, 5), 0u);
  unsigned value = 0;
  EXPECT_TRUE(record.GetCmdUIntData(0, value));
  EXPECT_EQ(value, 1u);
}

TEST_F(SwitchClientTest, ConcurrentRequestsDoNotInterleave) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  // Echo the object index so each caller can check it got its own answer.
  Answer([](const std::string& text) {
    const auto at = text.find("\"OI\":");
    const std::string oi = at == std::string::npos ? "0" : text.substr(at + 5, text.find('}', at) - at - 5);
    const std::string frame = FakeAgentDaemon::Frame("{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0,\"DA\":" + oi + "}]}}");
    return Reply{{frame.substr(0, 3), frame.substr(3)}, 0, false};
  });
  auto worker = [&client](unsigned base, int* mismatches) {
    for (unsigned i = 1; i <= 40; ++i) {
      SipJson record;
      Fill(record, 0x301, base + i);
      unsigned value = 0;
      if (client.Request(record, 5) != 0 || !record.GetCmdUIntData(0, value) || value != base + i) ++*mismatches;
    }
  };
  int bad1 = 0, bad2 = 0;
  std::thread t1(worker, 1000u, &bad1);
  std::thread t2(worker, 2000u, &bad2);
  t1.join();
  t2.join();
  EXPECT_EQ(bad1, 0);
  EXPECT_EQ(bad2, 0);
}

TEST_F(SwitchClientTest, CabinetNumberRequestAndReply) {
  CSwitchClient client;
  ASSERT_TRUE(client.Attach(nullptr));
  AnswerText("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":57860,\"ST\":0,\"DA\":3}]}}");
  unsigned cabinet = 99;
  EXPECT_TRUE(client.GetServerCabinetNumber(cabinet));
  EXPECT_EQ(cabinet, 3u);
  ASSERT_EQ(Sent().size(), 1u);
  EXPECT_EQ(Sent()[0], "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":57860}]}}");

  AnswerText("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":57860,\"ST\":4}]}}");
  cabinet = 99;
  EXPECT_FALSE(client.GetServerCabinetNumber(cabinet));
  EXPECT_EQ(cabinet, 99u);
}

TEST_F(SwitchClientTest, AttachFailuresLeaveTheirErrors) {
  std::string text;
  {
    CSwitchClient client;
    EXPECT_FALSE(client.Attach("remotehost"));
    EXPECT_EQ(client.GetLastError(), 22u);
    EXPECT_EQ(client.GetLastErrorMsg(text), "Remote connection not supported");
    EXPECT_EQ(text, "Remote connection not supported");
  }
  {
    // Classic socket up, JSON socket gone.
    request_.reset();
    unlink(CSystemRoot::Path("/dev/omadsj").c_str());
    CSwitchClient client;
    EXPECT_FALSE(client.Attach(nullptr));
    EXPECT_EQ(client.GetLastError(), 92u);
    EXPECT_EQ(client.GetLastErrorMsg(text), "JSON interface not supported by omad");
    EXPECT_EQ(client.GetAttachCount(), 0u);
  }
  {
    // Daemon stopped: no pid file, no socket. No error code by design.
    classic_.reset();
    unlink(CSystemRoot::Path("/dev/omads").c_str());
    unlink(CSystemRoot::Path("/var/run/omad.pid").c_str());
    CSwitchClient client;
    EXPECT_FALSE(client.Attach(nullptr));
    EXPECT_EQ(client.GetLastError(), 0u);
    EXPECT_EQ(client.GetLastErrorMsg(text), "NO ERROR");
  }
  {
    unlink(CSystemRoot::Path("/usr/sbin/omad").c_str());
    CSwitchClient client;
    EXPECT_FALSE(client.Attach(nullptr));
    EXPECT_EQ(client.GetLastError(), 6u);
    EXPECT_EQ(client.GetLastErrorMsg(text), "No omad service installed");
  }
}

TEST_F(SwitchClientTest, AlternativeServiceBinaryIsAccepted) {
  unlink(CSystemRoot::Path("/usr/sbin/omad").c_str());
  root_.writeFile("/usr/sbin/oasd", "");
  root_.writeFile("/var/run/oasd.pid", "7\n");
  CSwitchClient client;
  EXPECT_TRUE(client.Attach(nullptr));
}

TEST(SwitchClientNames, MethodNameAndLogon) {
  CSwitchClient client;
  EXPECT_TRUE(client.SetRequestMethod("jsonrequest"));
  EXPECT_TRUE(client.SetRequestMethod("JsonRequest"));
  EXPECT_FALSE(client.SetRequestMethod("SocketRequest"));
  EXPECT_FALSE(client.SetRequestMethod(nullptr));
  std::string method;
  EXPECT_TRUE(client.GetCurrentRequestMethod(method));
  EXPECT_EQ(method, "JsonRequest");
  EXPECT_FALSE(client.SetApplicationName(nullptr));
  EXPECT_TRUE(client.SetApplicationName("Zentrix"));
  EXPECT_EQ(client.GetApplicationName(), "Zentrix");
  EXPECT_TRUE(client.SetLogonUser("u", "p", "d"));
  std::string text;
  EXPECT_EQ(client.GetLastError(), 0u);
  EXPECT_EQ(client.GetLastErrorMsg(text), "NO ERROR");
}

class ReadinessTest : public ::testing::Test {
 protected:
  ScopedSystemRoot root_;
};

TEST_F(ReadinessTest, InstalledAndRunningLookAtFilesOnly) {
  const std::string daemon = CSystemRoot::Path("/usr/sbin/omad");
  EXPECT_FALSE(CSwitchClient::IsServiceInstalled(daemon.c_str()));
  EXPECT_FALSE(CSwitchClient::IsServiceRunning(daemon.c_str()));
  root_.writeFile("/usr/sbin/omad", "");
  EXPECT_TRUE(CSwitchClient::IsServiceInstalled(daemon.c_str()));
  EXPECT_FALSE(CSwitchClient::IsServiceRunning(daemon.c_str()));
  root_.writeFile("/var/run/omad.pid", "");  // content is never looked at
  EXPECT_TRUE(CSwitchClient::IsServiceRunning(daemon.c_str()));
  EXPECT_FALSE(CSwitchClient::IsServiceRunning(nullptr));
}

TEST_F(ReadinessTest, ReadyWhenTheSocketAcceptsAndStopsWhenTheDaemonIsNotRunning) {
  root_.writeFile("/usr/sbin/omad", "");
  root_.makeDirs("/dev");
  const std::string daemon = CSystemRoot::Path("/usr/sbin/omad");
  const std::string socketPath = CSystemRoot::Path("/dev/omads");
  CSwitchClient client;
  {
    FakeAgentDaemon listener(socketPath, [](const std::string&) { return Reply{}; });
    EXPECT_TRUE(client.IsServiceReady(daemon.c_str(), socketPath.c_str()));
  }
  const auto start = Clock::now();
  EXPECT_FALSE(client.IsServiceReady(daemon.c_str(), socketPath.c_str()));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
  std::string text;
  EXPECT_EQ(client.GetLastError(), 0u);
  EXPECT_EQ(client.GetLastErrorMsg(text), "NO ERROR");
}

TEST_F(ReadinessTest, PermissionDeniedOnTheSocketGives13) {
  // Root connects to anything, so the check runs in a child that has given
  // up its privileges; the socket only lets its owner write to it.
  if (geteuid() != 0) GTEST_SKIP() << "needs root to drop privileges";
  root_.makeDirs("/dev");
  chmod(root_.root().c_str(), 0755);
  chmod(CSystemRoot::Path("/dev").c_str(), 0755);
  const std::string socketPath = CSystemRoot::Path("/dev/omads");
  FakeAgentDaemon listener(socketPath, [](const std::string&) { return Reply{}; });
  ASSERT_EQ(chmod(socketPath.c_str(), 0700), 0);
  const std::string daemon = CSystemRoot::Path("/usr/sbin/omad");

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(200);
    CSwitchClient client;
    const bool ready = client.IsServiceReady(daemon.c_str(), socketPath.c_str());
    std::string text;
    client.GetLastErrorMsg(text);
    _exit(ready ? 201 : (text == "Permission denied on omad connect" ? static_cast<int>(client.GetLastError()) : 202));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 13);
}

class WaitForServiceTest : public ReadinessTest {
 protected:
  void SetUp() override {
    root_.writeFile("/usr/sbin/omad", "");
    root_.makeDirs("/dev");
  }
  // Daemon fully back: pid file, request socket present, event socket listening.
  std::unique_ptr<FakeAgentDaemon> BringDaemonBack() {
    root_.writeFile("/var/run/omad.pid", "1");
    root_.writeFile("/dev/omadsj", "");
    return std::make_unique<FakeAgentDaemon>(CSystemRoot::Path("/dev/omadaj"), [](const std::string&) { return Reply{}; });
  }
};

TEST_F(WaitForServiceTest, TooSmallOrInvalidAllowanceGivesUpAtOnce) {
  auto daemon = BringDaemonBack();
  CSwitchClient client;
  for (const char* value : {"1", "0", "abc", "-5"}) {
    ScopedEnv env(CSwitchClient::kMaxWaitVariable, value);
    const auto start = Clock::now();
    EXPECT_FALSE(client.WaitForServiceAvailable(-1)) << value;
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500)) << value;
  }
}

TEST_F(WaitForServiceTest, EmptyOrUnsetAllowanceWaitsForTheDaemon) {
  auto daemon = BringDaemonBack();
  CSwitchClient client;
  {
    ScopedEnv env(CSwitchClient::kMaxWaitVariable, "");
    EXPECT_TRUE(client.WaitForServiceAvailable(-1));
  }
  {
    ScopedEnv env(CSwitchClient::kMaxWaitVariable, nullptr);
    EXPECT_TRUE(client.WaitForServiceAvailable(-1));
  }
}

TEST_F(WaitForServiceTest, GivesUpWhenTheAllowanceRunsOut) {
  // Pid file and request socket, but nobody listens on the event socket.
  root_.writeFile("/var/run/omad.pid", "1");
  root_.writeFile("/dev/omadsj", "");
  ScopedEnv env(CSwitchClient::kMaxWaitVariable, "2");
  CSwitchClient client;
  const auto start = Clock::now();
  EXPECT_FALSE(client.WaitForServiceAvailable(-1));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(WaitForServiceTest, TerminatePipeEndsTheWait) {
  ScopedEnv env(CSwitchClient::kMaxWaitVariable, "600");
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  std::thread waker([&pipeFds] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(write(pipeFds[1], "WAKE", 4), 4);
  });
  CSwitchClient client;
  const auto start = Clock::now();
  EXPECT_FALSE(client.WaitForServiceAvailable(pipeFds[0]));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
  waker.join();
  close(pipeFds[0]);
  close(pipeFds[1]);
}

TEST_F(WaitForServiceTest, MissingBinaryGivesUpAtOnce) {
  unlink(CSystemRoot::Path("/usr/sbin/omad").c_str());
  auto daemon = BringDaemonBack();
  root_.writeFile("/usr/sbin/oasd", "");  // the alternative does not count here
  CSwitchClient client;
  EXPECT_FALSE(client.WaitForServiceAvailable(-1));
}

}  // namespace
