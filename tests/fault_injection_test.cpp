// The whole program against a daemon that misbehaves, goes away or cannot
// be reached, and against an output location that breaks under it. Each
// case checks what the user sees, the exit status and what is left on disk.
//
// The client paces incomplete reads one second apart, so every fault below is
// sized to cost at most a few such seconds.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/capability.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestSupport.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

const std::string kGenerating = "\nGenerating HTML report...";
const std::string kNotConnected = "\n ERROR: Orvana Agentless Service could not be connected\n";
// Values of the simulator's "typical" profile: one from the information page
// (asked for once, under its own value id), one row of the event log at the
// end of the health page.
constexpr const char* kHostName = "rack07-node03.example.net";
const std::string kHostNameOc = "oc=" + std::to_string(0xE107) + " count=1";
constexpr const char* kLaterInfoValue = "10.40.05";  // read after the host name
constexpr const char* kLastEventMessage = "PSU2: AC input lost";

std::string ReadFile(const std::string& path) { return ScopedSystemRoot::readFile(path); }

// The report's only <h3> holds its creation time; the rest is reproducible.
std::string WithoutTimestamp(const std::string& html) {
  return std::regex_replace(html, std::regex("<h3>[^<]*</h3>"), "<h3>TIME</h3>", std::regex_constants::format_first_only);
}

using Outcome = ProgramRun::Outcome;

std::vector<std::string> ReportCommand(const std::string& output) { return {ZX_ZENTRIX_BIN, "-output", output}; }

// The run ended by itself (not killed) with `status`, having printed exactly `out`.
void ExpectEnded(const Outcome& outcome, int status, const std::string& out) {
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exitStatus, status);
  EXPECT_EQ(outcome.out, out);
}

class FaultInjectionTest : public ::testing::Test {
 protected:
  Outcome Run(const ProgramRun::Options& options = {}) { return RunProgram(ReportCommand(path_), options); }
  std::string Written() const { return kGenerating + "\nSuccessfuly write HTML file \"" + path_ + "\"\n"; }

  // A clean run against the same daemon, for comparison.
  std::string CleanReport() {
    const std::string clean = sim_.path("/clean.html");
    EXPECT_EQ(RunProgram(ReportCommand(clean)).exitStatus, 0);
    return WithoutTimestamp(ReadFile(clean));
  }

  void ExpectCleanReport(const Outcome& outcome, const std::string& clean) {
    ExpectEnded(outcome, 0, Written());
    EXPECT_EQ(WithoutTimestamp(ReadFile(path_)), clean);
  }

  // A whole report in which the host name (the value the fault hit) is
  // missing; the last event message is there only when the health page still
  // reached the agent.
  void ExpectWrittenWithoutHostName(const Outcome& outcome, bool eventLogRead) {
    ExpectEnded(outcome, 0, Written());
    const std::string report = ReadFile(path_);
    EXPECT_EQ(report.find(kHostName), std::string::npos);
    EXPECT_EQ(report.find(kLastEventMessage) != std::string::npos, eventLogRead);
    EXPECT_NE(report.find("</html>"), std::string::npos);
  }

  // Nothing written but the probe's empty file.
  void ExpectNotConnected(const Outcome& outcome) {
    ExpectEnded(outcome, 255, kGenerating + kNotConnected);
    EXPECT_EQ(fs::file_size(path_), 0u);
  }

  AgentSimulator sim_;
  const std::string path_ = sim_.path("/report.html");
  const std::string pidFile_ = sim_.path("/var/run/omad.pid");
};

// ---------------------------------------------------------------------------
// The daemon answers slowly, in pieces, or with something unusable.

// Slow or split replies cost time, never content. A reply that cannot be
// used loses its one value and the channel stays in step. A reply that breaks
// the channel (closed without an answer, or a length word that does not
// describe the frame) ends that page's readings, but the next page attaches
// afresh: the health page and its event log are complete.
TEST_F(FaultInjectionTest, SlowSplitOrBadReplies) {
  const std::string clean = CleanReport();
  ASSERT_NE(clean.find(kHostName), std::string::npos);
  enum Loss { kNothing, kTheValue, kThePage };
  const struct {
    std::string control;
    Loss loss;
  } cases[] = {{"delay 5", kNothing},  // every reply, ~1.5 s in all
               {"fault split 3 50 count=3", kNothing},  // the client waits for the rest
               {"fault invalid-json " + kHostNameOc, kTheValue}, {"fault version 2 " + kHostNameOc, kTheValue},
               {"fault close " + kHostNameOc, kThePage}, {"fault length zero " + kHostNameOc, kThePage},
               {"fault length max " + kHostNameOc, kThePage}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control);
    ASSERT_TRUE(sim_.control("delay 0") && sim_.control(c.control));
    const Outcome run = Run();
    EXPECT_LT(run.seconds, c.loss == kNothing ? 15.0 : 5.0);  // split replies cost paced re-reads
    if (c.loss == kNothing) {
      ExpectCleanReport(run, clean);
      continue;
    }
    ExpectWrittenWithoutHostName(run, true);
    const std::string report = WithoutTimestamp(ReadFile(path_));
    EXPECT_EQ(report.find(kLaterInfoValue) != std::string::npos, c.loss == kTheValue);
    // Only the host name's line went missing.
    EXPECT_TRUE(c.loss != kTheValue || report.size() + 200 > clean.size());
  }
}

// The daemon restarts while a reply is half sent. Both pages attach before
// either renders, so the restart drops both channels: the client gives up on
// the reply after its paced retries (about ten seconds), every later reading
// fails at once, and the report is written with what arrived before.
TEST_F(FaultInjectionTest, ConnectionClosedMidReply) {
  ASSERT_TRUE(sim_.control("fault split 2 3000 " + kHostNameOc));
  ProgramRun run(ReportCommand(path_));
  const auto hostAsked = [](const std::string& r) { return r.find("\"OC\":" + std::to_string(0xE107)) != r.npos; };
  ASSERT_TRUE(WaitUntil([&] { const auto r = sim_.requests(); return std::any_of(r.begin(), r.end(), hostAsked); }));
  std::this_thread::sleep_for(milliseconds(300));  // the first half is on its way
  ASSERT_TRUE(sim_.control("restart"));
  const Outcome outcome = run.wait();
  ExpectWrittenWithoutHostName(outcome, false);
  EXPECT_NE(ReadFile(path_).find("System Event Log"), std::string::npos);
  EXPECT_GT(outcome.seconds, 5.0);  // the retries are paced, not skipped
}

// An event log record with a severity outside 0..3 stops the report on
// purpose: no success claimed, no partial report, only the probe's empty file.
TEST_F(FaultInjectionTest, UnknownEventSeverityWritesNoReport) {
  // One record: length 20, severity 4, code 1, time 1, message "hi!".
  ASSERT_TRUE(sim_.control(
      "set 2832 0 0 {\"ST\":0,\"DA\":{\"RAW\":[20,0,0,4,1,0,0,0,1,0,0,0,0,0,0,0,104,105,33,0]}}"));
  ExpectEnded(Run(), 255, kGenerating + "\n!! Failed to generate HTML report! (Error map::at)\n");
  EXPECT_EQ(fs::file_size(path_), 0u);
}

// ---------------------------------------------------------------------------
// The daemon reports counts no machine has.

// A count of -1 (4,294,967,295) would keep the run busy for days: the table
// stops at the bound (a smaller one for RAID adapters, whose drive lists
// multiply) and the rest of the report follows as usual.
TEST_F(FaultInjectionTest, CountsOfMinusOneEndAtTheBound) {
  ASSERT_TRUE(sim_.control("set 768 0 0 {\"ST\":0,\"DA\":4294967295}"));
  ASSERT_TRUE(sim_.control("set 8464 0 0 {\"ST\":0,\"DA\":4294967295}"));
  const Outcome run = Run();
  ExpectEnded(run, 0, Written());
  const std::string report = ReadFile(path_);
  auto rowsOf = [&report](const char* section) {
    const size_t start = report.find(section), end = report.find("</tbody>", start);
    size_t rows = 0;
    for (size_t at = start; (at = report.find("</tr>", at + 1)) < end;) ++rows;
    return rows - 1;  // the header row
  };
  EXPECT_EQ(rowsOf(">Cooling Devices<"), 16384u);
  EXPECT_EQ(rowsOf(">RAID Adapters<"), 64u);
  EXPECT_NE(report.find(kLastEventMessage), std::string::npos);
}

// ---------------------------------------------------------------------------
// The daemon goes away.

// Killed mid-run: both channels are open already, so every later reading
// fails at once and the report is written with what arrived before the kill.
TEST_F(FaultInjectionTest, KilledDuringTheRunLeavesAReportWithoutTheRest) {
  ASSERT_TRUE(sim_.control("delay 50"));
  ProgramRun run(ReportCommand(path_));
  ASSERT_TRUE(WaitUntil([&] { return sim_.requests().size() >= 5; }));
  EXPECT_EQ(sim_.terminate(SIGKILL), 128 + SIGKILL);
  const Outcome outcome = run.wait();
  ExpectWrittenWithoutHostName(outcome, false);
  EXPECT_LT(outcome.seconds, 5.0);
}

// Killed before the run, the daemon leaves its pid file and socket files
// behind; the client then waits for it (a wait bounded at about ten
// minutes). It stops waiting as soon as the pid file is gone, and writes the
// whole report when the daemon's sockets come back in time.
TEST_F(FaultInjectionTest, PidFileKeepsTheClientWaitingForTheDaemon) {
  const std::string clean = CleanReport();
  for (bool back : {true, false}) {
    SCOPED_TRACE(back ? "sockets back" : "pid file removed");
    ASSERT_TRUE(back ? sim_.control("stop-sockets") : sim_.terminate(SIGKILL) == 128 + SIGKILL);
    ASSERT_TRUE(fs::exists(pidFile_));
    ProgramRun run(ReportCommand(path_));
    std::this_thread::sleep_for(milliseconds(2500));
    ASSERT_TRUE(run.running()) << "the client should wait for a daemon whose pid file exists";
    if (back) ASSERT_TRUE(sim_.start());
    else fs::remove(pidFile_);
    back ? ExpectCleanReport(run.wait(), clean) : ExpectNotConnected(run.wait());
  }
}

// The pid file counts only when the daemon cannot be connected: a running
// daemon without one serves as usual.
TEST_F(FaultInjectionTest, PidFileMattersOnlyForAnUnreachableDaemon) {
  ASSERT_TRUE(fs::remove(pidFile_));
  ExpectEnded(Run(), 0, Written());
  EXPECT_NE(ReadFile(path_).find(kLastEventMessage), std::string::npos);
}

// ---------------------------------------------------------------------------
// The output location breaks after the probe.

TEST_F(FaultInjectionTest, DirectoryRemovedBetweenProbeAndWrite) {
  ASSERT_TRUE(sim_.control("delay 5"));
  const std::string dir = sim_.path("/out"), path = dir + "/report.html";
  fs::create_directories(dir);
  ProgramRun run(ReportCommand(path));
  ASSERT_TRUE(WaitUntil([&] { return !sim_.requests().empty(); }));  // the probe has run
  EXPECT_TRUE(fs::exists(path));
  fs::remove_all(dir);
  ExpectEnded(run.wait(), 255,
              kGenerating + "\n!! Failed to write HTML file \"" + path + "\"! (Error No such file or directory)\n");
  EXPECT_FALSE(fs::exists(dir));
}

// ---------------------------------------------------------------------------
// The daemon hangs: its socket listens but never accepts, its queue is full.

// Listens at `path`, in place of the daemon's socket, but never accepts, and
// fills the queue; returns the descriptors to close.
std::vector<int> HangSocket(const std::string& path) {
  const sockaddr_un address = UnixAddress(path);
  const auto* raw = reinterpret_cast<const struct sockaddr*>(&address);
  fs::remove(path);
  std::vector<int> fds = {socket(AF_UNIX, SOCK_STREAM, 0)};
  EXPECT_TRUE(bind(fds[0], raw, sizeof(address)) == 0 && listen(fds[0], 0) == 0) << path;
  do fds.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
  while (connect(fds.back(), raw, sizeof(address)) == 0);
  return fds;
}

// A socket the user may not open ends the run at once with the usual error.
// A hung one makes every connect count as one failed attempt instead of
// blocking, so the error comes after the request channel's 20 attempts (about
// a second), or for the readiness socket after one check of the pid file,
// which is removed here (with it in place the wait would last ten minutes).
TEST_F(FaultInjectionTest, UnusableSocketsEndTheRunWithTheUsualError) {
  // Root without the capabilities that override file modes (gone after exec
  // once dropped from the bounding set) meets socket modes as any user does.
  ProgramRun::Options ordinaryUser;
  ordinaryUser.inChild = [] {
    if (geteuid() == 0 && (prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) != 0 ||
                           prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) != 0))
      _exit(126);
  };
  const struct {
    const char* socket;
    bool hung;
  } cases[] = {{"/dev/omads", false}, {"/dev/omadsj", false}, {"/dev/omadsj", true}, {"/dev/omads", true}};
  bool skipped = false;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.socket) + (c.hung ? " hung" : " mode 000"));
    const fs::perms usual = fs::status(sim_.path(c.socket)).permissions();
    if (!c.hung) fs::permissions(sim_.path(c.socket), fs::perms::none);
    if (c.hung && std::string(c.socket) == "/dev/omads") fs::remove(pidFile_);
    const std::vector<int> hung = c.hung ? HangSocket(sim_.path(c.socket)) : std::vector<int>();
    const Outcome run = c.hung ? Run() : Run(ordinaryUser);
    fs::permissions(sim_.path(c.socket), usual);
    for (int fd : hung) close(fd);
    if (run.exitStatus == 126) {
      skipped = true;  // capabilities cannot be dropped here
      continue;
    }
    ExpectNotConnected(run);
    EXPECT_LT(run.seconds, 5.0);
  }
  EXPECT_TRUE(sim_.requests().empty());
  if (skipped) GTEST_SKIP() << "cannot drop capabilities here: the mode 000 cases did not run";
}

}  // namespace
