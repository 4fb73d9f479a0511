#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/AgentSimulator.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

// event-watch as a child process with its stdout on a pipe.
class Watcher {
 public:
  explicit Watcher(std::vector<std::string> args = {}) {
    int out[2];
    if (pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      close(out[0]);
      close(out[1]);
      std::vector<char*> argv = {const_cast<char*>(EVENT_WATCH_BIN)};
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(EVENT_WATCH_BIN, argv.data());
      _exit(127);
    }
    close(out[1]);
    out_ = out[0];
  }
  ~Watcher() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      Wait();
    }
    if (out_ >= 0) close(out_);
  }

  // Next output line, or "" after timeoutMs without one.
  std::string ReadLine(int timeoutMs = 10000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
      size_t nl = buffer_.find('\n');
      if (nl != std::string::npos) {
        std::string line = buffer_.substr(0, nl);
        buffer_.erase(0, nl + 1);
        return line;
      }
      int left = static_cast<int>(
          std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count());
      pollfd p = {out_, POLLIN, 0};
      if (left <= 0 || poll(&p, 1, left) <= 0) return "";
      char chunk[256];
      ssize_t n = read(out_, chunk, sizeof chunk);
      if (n <= 0) return "";
      buffer_.append(chunk, static_cast<size_t>(n));
    }
  }

  // Exit status, or -1 when it did not end within timeoutMs.
  int Wait(int timeoutMs = 10000) {
    for (int waited = 0; waited <= timeoutMs; waited += 10) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      usleep(10000);
    }
    return -1;
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string buffer_;
};

}  // namespace

TEST(EventWatchTest, PrintsEachEventAndEndsCleanlyOnSignal) {
  for (int signal : {SIGTERM, SIGINT}) {
    AgentSimulator sim;
    Watcher watcher;
    ASSERT_TRUE(sim.waitForEventChannels(1));
    ASSERT_TRUE(sim.control("event {\"OC\":770,\"OI\":2,\"CA\":0,\"ST\":0,\"DA\":5580}"));
    EXPECT_EQ(watcher.ReadLine(), "OC=0x0302 OE=0x0000 OI=2 CA=0 ST=0 DA=5580");
    ASSERT_TRUE(sim.control("event {\"OC\":1025,\"OE\":3,\"CA\":0,\"ST\":0,\"DA\":{\"RAW\":[1,2]}}"));
    EXPECT_EQ(watcher.ReadLine(), "OC=0x0401 OE=0x0003 OI=0 CA=0 ST=0 DA={\"RAW\":[1,2]}");

    kill(watcher.pid(), signal);
    EXPECT_EQ(watcher.Wait(), 0) << "signal " << signal;
    EXPECT_NE(sim.query("status").find("event-channels=0"), std::string::npos) << "the channel was left open";
  }
}

TEST(EventWatchTest, FailsWithoutADaemonAndOnBadArguments) {
  {
    ScopedSystemRoot empty;  // nothing installed
    Watcher watcher;
    EXPECT_EQ(watcher.Wait(), 1);
  }
  Watcher usage({"-x"});
  EXPECT_EQ(usage.Wait(), 2);
}
