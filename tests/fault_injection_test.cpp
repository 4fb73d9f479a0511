// The whole program against a daemon that misbehaves, goes away or cannot
// be reached, and against an output location that breaks under it. Each
// case checks what the user sees, the exit status and what is left on disk.
//
// The client paces incomplete reads one second apart, so every fault below is
// sized to cost at most a few such seconds.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <linux/capability.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/AgentSimulator.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr const char* kGenerating = "\nGenerating HTML report...";
constexpr const char* kNotConnected = "\n ERROR: Orvana Agentless Service could not be connected\n";
// Values of the simulator's "typical" profile: one from the information page
// (asked for once, under its own value id), one row of the event log at the
// end of the health page.
constexpr const char* kHostName = "rack07-node03.example.net";
constexpr unsigned kHostNameValueId = 0xE107;
constexpr const char* kBoardSerial = "BD7731K0925";
constexpr const char* kLastEventMessage = "PSU2: AC input lost";

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The report carries its creation time, "<h3>YYYY-mm-dd HH:MM:SS</h3>";
// everything else is reproducible.
std::string WithoutTimestamp(std::string html) {
  static const std::string shape = "<h3>dddd-dd-dd dd:dd:dd</h3>";
  for (size_t at = html.find("<h3>"); at != std::string::npos; at = html.find("<h3>", at + 1)) {
    if (html.size() - at < shape.size()) break;
    bool match = true;
    for (size_t i = 0; i < shape.size() && match; ++i) {
      const char c = html[at + i];
      match = shape[i] == 'd' ? (c >= '0' && c <= '9') : c == shape[i];
    }
    if (match) html.replace(at, shape.size(), "<h3>TIME</h3>");
  }
  return html;
}

bool WaitFor(const std::function<bool()>& condition, milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return true;
}

// How the program is started.
struct Launch {
  std::vector<std::string> args;
  // The child may write at most this many bytes to any file (0: no limit);
  // the size-limit signal is ignored, so writes fail the way a full disk
  // makes them fail.
  rlim_t fileSizeLimit = 0;
  // Started as root without the capabilities that override file modes, so
  // socket permissions apply as they do to an ordinary user.
  bool withoutModeOverride = false;
};

struct Outcome {
  int exitStatus = -1;  // valid when the program exited
  int signal = 0;       // the signal that ended it, if any
  bool timedOut = false;
  std::string out;
  double seconds = 0;
};

// The program as a child process with standard output captured in a file;
// ZENTRIX_ROOT (the simulator's root) is inherited.
class ProgramRun {
 public:
  ProgramRun(const Launch& launch, const std::string& scratchDir)
      : outPath_(scratchDir + "/zentrix.stdout"), started_(Clock::now()) {
    std::vector<std::string> argv = {ZX_ZENTRIX_BIN};
    argv.insert(argv.end(), launch.args.begin(), launch.args.end());
    pid_ = fork();
    if (pid_ == 0) {
      const int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = open((outPath_ + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (out < 0 || err < 0) _exit(125);
      dup2(out, 1);
      dup2(err, 2);
      struct rlimit noCore = {0, 0};  // a deliberate abort leaves no core file
      setrlimit(RLIMIT_CORE, &noCore);
      if (launch.fileSizeLimit != 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {launch.fileSizeLimit, launch.fileSizeLimit};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(125);
      }
      if (launch.withoutModeOverride && geteuid() == 0) {
        // Dropped from the bounding set, they are gone after exec.
        if (prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) != 0 ||
            prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) != 0) {
          _exit(126);
        }
      }
      std::vector<char*> raw;
      for (std::string& a : argv) raw.push_back(a.data());
      raw.push_back(nullptr);
      execv(raw[0], raw.data());
      _exit(127);
    }
  }

  ~ProgramRun() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  bool running() {
    if (reaped_) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      Record(status);
      return false;
    }
    return true;
  }

  // Waits at most `limit`; a program still running then is killed and the
  // outcome marked as timed out.
  Outcome wait(milliseconds limit) {
    if (!WaitFor([this] { return !running(); }, limit)) {
      outcome_.timedOut = true;
      kill(pid_, SIGKILL);
      int status = 0;
      waitpid(pid_, &status, 0);
      Record(status);
    }
    outcome_.out = ReadFile(outPath_);
    return outcome_;
  }

  std::string errorOutput() const { return ReadFile(outPath_ + ".err"); }

 private:
  void Record(int status) {
    reaped_ = true;
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
    if (WIFEXITED(status)) outcome_.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) outcome_.signal = WTERMSIG(status);
  }

  std::string outPath_;
  Clock::time_point started_;
  pid_t pid_ = -1;
  bool reaped_ = false;
  Outcome outcome_;
};

Outcome RunToEnd(const AgentSimulator& sim, const Launch& launch, milliseconds limit = milliseconds(30000)) {
  ProgramRun run(launch, sim.root());
  return run.wait(limit);
}

std::string Written(const std::string& path) { return "\nSuccessfuly write HTML file \"" + path + "\"\n"; }

// The run ended normally with a whole report in which the host name (the
// value the fault hit) is missing; the last event message is there only when
// the health page still reached the agent.
void ExpectWrittenWithoutHostName(const Outcome& outcome, const std::string& path, bool eventLogRead) {
  EXPECT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.out, std::string(kGenerating) + Written(path));
  const std::string report = ReadFile(path);
  EXPECT_EQ(report.find(kHostName), std::string::npos);
  EXPECT_EQ(report.find(kLastEventMessage) != std::string::npos, eventLogRead);
  EXPECT_NE(report.find("</html>"), std::string::npos);
}

// A clean run against the same daemon, for comparison.
std::string CleanReport(AgentSimulator& sim) {
  const std::string path = sim.path("/clean.html");
  const Outcome clean = RunToEnd(sim, {{"-output", path}});
  EXPECT_EQ(clean.exitStatus, 0) << clean.out;
  return WithoutTimestamp(ReadFile(path));
}

AgentSimulator::Options WithArgs(std::vector<std::string> args) {
  AgentSimulator::Options options;
  options.args = std::move(args);
  return options;
}

// ---------------------------------------------------------------------------
// A daemon that answers slowly or in pieces costs time, never content.

TEST(FaultInjectionReplyTest, SlowAndSplitRepliesGiveTheCleanReport) {
  AgentSimulator sim;
  const std::string clean = CleanReport(sim);
  ASSERT_NE(clean.find(kHostName), std::string::npos);
  const std::string path = sim.path("/report.html");

  ASSERT_TRUE(sim.control("delay 5"));  // every reply, ~1.5 s in all
  Outcome slow = RunToEnd(sim, {{"-output", path}});
  EXPECT_EQ(slow.exitStatus, 0);
  EXPECT_EQ(slow.out, std::string(kGenerating) + Written(path));
  EXPECT_EQ(WithoutTimestamp(ReadFile(path)), clean);

  // Three replies in three pieces each: the client waits for the rest.
  ASSERT_TRUE(sim.control("fault none"));
  ASSERT_TRUE(sim.control("fault split 3 50 count=3"));
  Outcome split = RunToEnd(sim, {{"-output", path}});
  EXPECT_EQ(split.exitStatus, 0);
  EXPECT_EQ(split.out, std::string(kGenerating) + Written(path));
  EXPECT_EQ(WithoutTimestamp(ReadFile(path)), clean);
  EXPECT_LT(split.seconds, 15.0);
}

// A reply that cannot be used loses its one value; the channel stays in step
// and the rest of the report is complete.
TEST(FaultInjectionReplyTest, UnusableReplyLosesOnlyItsValue) {
  AgentSimulator sim;
  const std::string clean = CleanReport(sim);
  const std::string path = sim.path("/report.html");
  for (const std::string fault : {"invalid-json", "version 2"}) {
    SCOPED_TRACE(fault);
    ASSERT_TRUE(sim.control("fault " + fault + " oc=" + std::to_string(kHostNameValueId) + " count=1"));
    Outcome run = RunToEnd(sim, {{"-output", path}});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, std::string(kGenerating) + Written(path));
    const std::string report = WithoutTimestamp(ReadFile(path));
    EXPECT_EQ(report.find(kHostName), std::string::npos);
    EXPECT_NE(report.find(kBoardSerial), std::string::npos);
    EXPECT_NE(report.find(kLastEventMessage), std::string::npos);
    // Exactly the host name's line went missing.
    EXPECT_LT(report.size(), clean.size());
    EXPECT_GT(report.size() + 200, clean.size());
  }
}

// A reply that breaks the channel (closed without an answer, or a length word
// that does not describe the frame) ends that page's readings; the next page
// attaches afresh, so the health page and its event log are complete.
TEST(FaultInjectionReplyTest, BrokenChannelLosesTheRestOfThePageOnly) {
  AgentSimulator sim;
  const std::string path = sim.path("/report.html");
  for (const std::string fault : {"close", "length zero", "length max"}) {
    SCOPED_TRACE(fault);
    ASSERT_TRUE(sim.control("fault " + fault + " oc=" + std::to_string(kHostNameValueId) + " count=1"));
    Outcome run = RunToEnd(sim, {{"-output", path}});
    ExpectWrittenWithoutHostName(run, path, true);
    EXPECT_LT(run.seconds, 5.0);
  }
}

// The daemon restarts while a reply is half sent. Both pages attach before
// either renders, so the restart drops both channels: the client gives up on
// the reply after its paced retries (about ten seconds), every later reading
// fails at once, and the report is written with what arrived before.
TEST(FaultInjectionReplyTest, ConnectionClosedMidReply) {
  AgentSimulator sim;
  const std::string path = sim.path("/report.html");
  ASSERT_TRUE(sim.control("fault split 2 3000 oc=" + std::to_string(kHostNameValueId) + " count=1"));
  ProgramRun run({{"-output", path}}, sim.root());
  const std::string hostRequest = "\"OC\":" + std::to_string(kHostNameValueId);
  ASSERT_TRUE(WaitFor(
      [&] {
        for (const std::string& r : sim.requests())
          if (r.find(hostRequest) != std::string::npos) return true;
        return false;
      },
      milliseconds(10000)));
  std::this_thread::sleep_for(milliseconds(300));  // the first half is on its way
  ASSERT_TRUE(sim.restart());
  Outcome outcome = run.wait(milliseconds(25000));
  ExpectWrittenWithoutHostName(outcome, path, false);
  EXPECT_NE(ReadFile(path).find("System Event Log"), std::string::npos);
  EXPECT_GT(outcome.seconds, 5.0);  // the retries are paced, not skipped
}

// An event log record with a severity outside 0..3 stops the report on
// purpose: the run must neither claim success nor leave a partial report;
// only the probe's empty file remains.
TEST(FaultInjectionReplyTest, UnknownEventSeverityWritesNoReport) {
  AgentSimulator sim;
  const std::string path = sim.path("/report.html");
  // One record: length 20, severity 4, code 1, time 1, message "hi!".
  ASSERT_TRUE(sim.control(
      "set 2832 0 0 {\"ST\":0,\"DA\":{\"RAW\":[20,0,0,4,1,0,0,0,1,0,0,0,0,0,0,0,104,105,33,0]}}"));
  ProgramRun run({{"-output", path}}, sim.root());
  Outcome outcome = run.wait(milliseconds(20000));
  EXPECT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exitStatus, 255);
  EXPECT_EQ(outcome.out.find("Successfuly write"), std::string::npos);
  EXPECT_NE(outcome.out.find("\n!! Failed to generate HTML report! (Error map::at)\n"), std::string::npos);
  EXPECT_EQ(fs::file_size(path), 0u);
}

// ---------------------------------------------------------------------------
// The daemon goes away.

class ReplacementDaemon {
 public:
  explicit ReplacementDaemon(const std::string& root) {
    const std::string profile = std::string(ZX_SOURCE_DIR) + "/tools/agent-sim/profiles/typical.json";
    pid_ = fork();
    if (pid_ == 0) {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      dup2(null, 2);
      execl(ZX_AGENT_SIM, ZX_AGENT_SIM, "--root", root.c_str(), "--profile", profile.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~ReplacementDaemon() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }

 private:
  pid_t pid_ = -1;
};

// Killed mid-run: both channels are open already, so every later reading
// fails at once and the report is written with what arrived before the kill.
TEST(FaultInjectionDaemonTest, KilledDuringTheRunLeavesAReportWithoutTheRest) {
  AgentSimulator sim(WithArgs({"--delay", "50"}));
  const std::string path = sim.path("/report.html");
  ProgramRun run({{"-output", path}}, sim.root());
  ASSERT_TRUE(sim.waitForRequests(5));
  EXPECT_EQ(sim.terminate(SIGKILL), 128 + SIGKILL);
  Outcome outcome = run.wait(milliseconds(10000));
  ExpectWrittenWithoutHostName(outcome, path, false);
  EXPECT_LT(outcome.seconds, 5.0);
}

// Killed before the run, the daemon leaves its pid file and socket files
// behind; the client then waits for it (a wait bounded at about ten
// minutes). It stops waiting as soon as the pid file is gone...
TEST(FaultInjectionDaemonTest, StalePidFileKeepsTheClientWaitingUntilRemoved) {
  AgentSimulator sim;
  const std::string path = sim.path("/report.html");
  EXPECT_EQ(sim.terminate(SIGKILL), 128 + SIGKILL);
  ASSERT_TRUE(fs::exists(sim.path("/var/run/omad.pid")));
  ProgramRun run({{"-output", path}}, sim.root());
  std::this_thread::sleep_for(milliseconds(2500));
  EXPECT_TRUE(run.running()) << "the client should wait for a daemon whose pid file exists";
  fs::remove(sim.path("/var/run/omad.pid"));
  Outcome outcome = run.wait(milliseconds(5000));
  EXPECT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitStatus, 255);
  EXPECT_EQ(outcome.out, std::string(kGenerating) + kNotConnected);
  // Only the probe's empty file remains.
  EXPECT_TRUE(fs::exists(path));
  EXPECT_EQ(fs::file_size(path), 0u);
}

// ...and writes the whole report when the daemon comes back in time.
TEST(FaultInjectionDaemonTest, DaemonBackWithinTheWaitGivesTheWholeReport) {
  AgentSimulator sim;
  const std::string clean = CleanReport(sim);
  const std::string path = sim.path("/report.html");
  EXPECT_EQ(sim.terminate(SIGKILL), 128 + SIGKILL);
  ProgramRun run({{"-output", path}}, sim.root());
  std::this_thread::sleep_for(milliseconds(1500));
  ASSERT_TRUE(run.running());
  ReplacementDaemon daemon(sim.root());
  Outcome outcome = run.wait(milliseconds(20000));
  EXPECT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.out, std::string(kGenerating) + Written(path));
  EXPECT_EQ(WithoutTimestamp(ReadFile(path)), clean);
}

// The pid file counts only when the daemon cannot be connected: a running
// daemon without one serves as usual, a stopped one ends the run at once.
TEST(FaultInjectionDaemonTest, PidFileMattersOnlyForAnUnreachableDaemon) {
  AgentSimulator sim;
  const std::string path = sim.path("/report.html");
  ASSERT_TRUE(fs::remove(sim.path("/var/run/omad.pid")));
  Outcome served = RunToEnd(sim, {{"-output", path}});
  EXPECT_EQ(served.exitStatus, 0);
  EXPECT_NE(ReadFile(path).find(kLastEventMessage), std::string::npos);

  ASSERT_TRUE(sim.stop());
  Outcome stopped = RunToEnd(sim, {{"-output", path}});
  EXPECT_EQ(stopped.exitStatus, 255);
  EXPECT_EQ(stopped.out, std::string(kGenerating) + kNotConnected);
  EXPECT_LT(stopped.seconds, 5.0);
  EXPECT_EQ(fs::file_size(path), 0u);
}

// Sockets the user may not open end the run at once with the usual message,
// whether it is the readiness socket or the request socket.
TEST(FaultInjectionDaemonTest, SocketWithoutPermission) {
  for (const char* socket : {"/dev/omads", "/dev/omadsj"}) {
    SCOPED_TRACE(socket);
    AgentSimulator sim;
    const std::string path = sim.path("/report.html");
    ASSERT_EQ(chmod(sim.path(socket).c_str(), 0), 0);
    Launch launch{{"-output", path}};
    launch.withoutModeOverride = true;
    Outcome run = RunToEnd(sim, launch);
    if (run.exitStatus == 126) GTEST_SKIP() << "cannot drop capabilities here";
    EXPECT_EQ(run.exitStatus, 255);
    EXPECT_EQ(run.out, std::string(kGenerating) + kNotConnected);
    EXPECT_LT(run.seconds, 5.0);
    EXPECT_EQ(fs::file_size(path), 0u);
    EXPECT_TRUE(sim.requests().empty());
  }
}

// ---------------------------------------------------------------------------
// The output location breaks after the probe.

TEST(FaultInjectionOutputTest, DirectoryRemovedBetweenProbeAndWrite) {
  AgentSimulator sim(WithArgs({"--delay", "5"}));
  const std::string dir = sim.path("/out");
  fs::create_directories(dir);
  const std::string path = dir + "/report.html";
  ProgramRun run({{"-output", path}}, sim.root());
  ASSERT_TRUE(sim.waitForRequests(1));  // the probe has run
  EXPECT_TRUE(fs::exists(path));
  fs::remove_all(dir);
  Outcome outcome = run.wait(milliseconds(20000));
  EXPECT_EQ(outcome.exitStatus, 255);
  EXPECT_EQ(outcome.out, std::string(kGenerating) + "\n!! Failed to write HTML file \"" + path +
                             "\"! (Error No such file or directory)\n");
  EXPECT_FALSE(fs::exists(dir));
}

// A small file system of its own, unmounted (lazily) on destruction.
class SmallFileSystem {
 public:
  SmallFileSystem(const std::string& dir, size_t bytes) : dir_(dir) {
    fs::create_directories(dir);
    const std::string options = "size=" + std::to_string(bytes);
    mounted_ = mount("tmpfs", dir.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }
  ~SmallFileSystem() {
    if (mounted_) umount2(dir_.c_str(), MNT_DETACH);
  }
  bool mounted() const { return mounted_; }

 private:
  std::string dir_;
  bool mounted_ = false;
};

// The report's write is not checked (the rules say so): a full disk leaves a
// truncated report and the run still reports success. The run must not die.
TEST(FaultInjectionOutputTest, DiskFullTruncatesTheReport) {
  AgentSimulator sim;
  const std::string clean = CleanReport(sim);
  constexpr size_t kSpace = 8192;
  ASSERT_GT(clean.size(), 2 * kSpace);
  SmallFileSystem small(sim.path("/small"), kSpace);
  const std::string path = sim.path("/small/report.html");
  Launch launch{{"-output", path}};
  if (!small.mounted()) launch.fileSizeLimit = kSpace;  // EFBIG instead of ENOSPC
  Outcome run = RunToEnd(sim, launch);
  EXPECT_EQ(run.signal, 0);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, std::string(kGenerating) + Written(path));
  const std::string written = WithoutTimestamp(ReadFile(path));
  EXPECT_LE(written.size(), kSpace);
  EXPECT_GT(written.size(), 0u);
  EXPECT_EQ(written, clean.substr(0, written.size()));
}

}  // namespace
