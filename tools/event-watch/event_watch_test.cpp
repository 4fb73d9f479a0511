#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/AgentSimulator.h"

namespace {

// event-watch as a child process with its stdout on a pipe.
class Watcher {
 public:
  Watcher() {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      execl(EVENT_WATCH_BIN, EVENT_WATCH_BIN, static_cast<char*>(nullptr));
      _exit(127);
    }
    close(out[1]);
    out_ = out[0];
  }
  ~Watcher() {
    if (pid_ > 0) kill(pid_, SIGKILL), Wait();
    if (out_ >= 0) close(out_);
  }

  // Next output line; "" when none came within 10 s.
  std::string ReadLine() {
    std::string line;
    pollfd p = {out_, POLLIN, 0};
    char c = 0;
    while (poll(&p, 1, 10000) > 0 && read(out_, &c, 1) == 1 && c != '\n') line += c;
    return c == '\n' ? line : "";
  }
  // Exit status (128 + signal when killed), -1 when it did not end within 10 s.
  int Wait() {
    for (int waited = 0; waited < 10000; waited += 10, usleep(10000)) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
    }
    return -1;
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
};

}  // namespace

TEST(EventWatchTest, PrintsEachEventAndEndsCleanlyOnSignal) {
  for (int signal : {SIGTERM, SIGINT}) {
    AgentSimulator sim;
    Watcher watcher;
    ASSERT_TRUE(sim.waitForEventChannels(1));
    ASSERT_TRUE(sim.control(R"(event {"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580})"));
    EXPECT_EQ(watcher.ReadLine(), "OC=0x0302 OE=0x0000 OI=2 CA=0 ST=0 DA=5580");
    ASSERT_TRUE(sim.control(R"(event {"SIP":{"V":1,"CMD":[{"OC":1025,"OE":3,"CA":1,"ST":3,"DA":{"RAW":[1,2]}},{"OC":8961,"ST":0}]}})"));
    EXPECT_EQ(watcher.ReadLine(), "OC=0x0401 OE=0x0003 OI=0 CA=1 ST=3 DA={\"RAW\":[1,2]}");
    EXPECT_EQ(watcher.ReadLine(), "OC=0x2301 OE=0x0000 OI=0 CA=0 ST=0 DA=-");

    kill(watcher.pid(), signal);
    EXPECT_EQ(watcher.Wait(), 0) << "signal " << signal;
    EXPECT_NE(sim.query("status").find("event-channels=0"), std::string::npos) << "the channel was left open";
  }
}
