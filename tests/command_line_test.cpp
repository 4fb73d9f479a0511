// Runs the built Zentrix binary in a scratch working directory against the
// agent simulator and checks what a user sees (console text, exit status, the
// files left behind) and what the agent received.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace fs = std::filesystem;

namespace {

const std::string kHelp =
    "\nSyntax:\nZentrix\nZentrix           generates HTML output file Zentrix_<timestamp>.html\n"
    "\n   -output [file name]   generates HTML output file [file name]"
    "\n   -clearstatus          clears Driver Monitor status and generates HTML output file Zentrix_<timestamp>.html"
    "\n   -autostart             starts default browser after generating the HTML report\n   -?                    shows this help\n";
const std::string kClearing = "\nClearing Driver Monitor status for all components...";
const std::string kGenerating = "\nGenerating HTML report...";

std::string Written(const std::string& path) { return "\nSuccessfuly write HTML file \"" + path + "\"\n"; }

// "Zentrix_<YYYYmmddHHMMSS>.html"; its exact stamp is the app's unit test's business.
bool IsDefaultReportName(const std::string& name) { return std::regex_match(name, std::regex(R"(Zentrix_\d{14}\.html)")); }

class CommandLineTest : public ::testing::Test {
 protected:
  // Runs the binary with exactly `args` (empty ones included) in the work
  // directory, with `pathPrefix` in front of PATH; the exit status is -1 when
  // the process did not exit normally (a hung run is ended after 30 seconds).
  std::pair<int, std::string> Run(const std::vector<std::string>& args, const std::string& pathPrefix = "") {
    ProgramRun::Options options;
    options.workDir = work_;
    if (!pathPrefix.empty()) options.env = {"PATH=" + pathPrefix + ":" + getenv("PATH")};
    std::vector<std::string> argv = {ZX_ZENTRIX_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    const ProgramRun::Outcome run = RunProgram(argv, options);
    return {run.exitStatus, run.out};
  }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(work_)) names.push_back(e.path().filename().string());
    return names;
  }

  // Status resets the agent carried out (the request's content is the client's unit test's business).
  long Clears() const {
    const std::string status = sim_.query("status");
    return std::atol(status.c_str() + status.find("clears=") + 7);
  }

  AgentSimulator sim_;  // records every request it receives
  const std::string work_ = sim_.makeDirs("/work");
};

}  // namespace

TEST_F(CommandLineTest, HelpForEveryCommandLineThatDoesNotAddUp) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"-?"}, {"foo"}, {"/?"}, {"-output"}, {"-output", "a", "b"}, {"-output", "-clearstatus"}, {"-verbose"},
           {"-clearstatus", "-clearstatus"}, {"-autostart", "-?"}, {"-output", "r.html", "-Output", "s.html"}}) {
    SCOPED_TRACE(testing::PrintToString(args));
    EXPECT_EQ(Run(args), std::make_pair(0, kHelp));
  }
  // Help never creates a report, probes a file or talks to the agent.
  EXPECT_TRUE(Entries().empty());
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(CommandLineTest, UnwritablePathFailsBeforeAnyAgentTraffic) {
  auto failure = [](const std::string& path, int error) {
    return std::make_pair(255, "\n!! Failed to write HTML file \"" + path + "\"! (Error " + strerror(error) + ")\n");
  };
  const std::string missing = work_ + "/missing/r.html";
  EXPECT_EQ(Run({"-clearstatus", "-output", missing}), failure(missing, ENOENT));
  EXPECT_EQ(Run({"-OUTPUT", work_}), failure(work_, EISDIR));
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(CommandLineTest, NoArgumentsWritesTimestampedReportInWorkingDirectory) {
  const auto run = Run({});
  const std::vector<std::string> files = Entries();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(IsDefaultReportName(files[0])) << files[0];
  EXPECT_EQ(run, std::make_pair(0, kGenerating + Written(files[0])));
  const std::string html = ScopedSystemRoot::readFile(work_ + "/" + files[0]);
  // The heading's clock is read after the file name's, never earlier.
  std::string heading = html.substr(html.find("<h3>") + 4, 19);  // "YYYY-mm-dd HH:MM:SS"
  heading.erase(std::remove_if(heading.begin(), heading.end(), [](char c) { return !isdigit(c); }), heading.end());
  ASSERT_EQ(heading.size(), 14u) << html.substr(0, 400);
  EXPECT_GE(heading, files[0].substr(8, 14));
  EXPECT_EQ(Clears(), 0);
}

TEST_F(CommandLineTest, CaseInsensitiveSwitchesWriteNamedFileAndStartBrowser) {
  // A stand-in browser opener that records its arguments and the size of the
  // file it was handed: the report must be complete when the browser starts.
  const std::string opener = sim_.writeFile(
      "/fakebin/xdg-open", "#!/bin/sh\nprintf '%s|' \"$@\" >> opened.txt\nwc -c < \"$1\" >> opened.txt\n");
  fs::permissions(opener, fs::perms::owner_all);
  EXPECT_EQ(Run({"-OUTPUT", "my report.html", "-AutoStart"}, sim_.path("/fakebin")),
            std::make_pair(0, kGenerating + Written("my report.html")));
  const std::string report = ScopedSystemRoot::readFile(work_ + "/my report.html");
  EXPECT_EQ(report.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/opened.txt"), "my report.html|" + std::to_string(report.size()) + "\n");

  // An empty name falls back to the default one.
  EXPECT_EQ(Run({"-output", ""}).first, 0);
  const std::vector<std::string> files = Entries();
  EXPECT_EQ(std::count_if(files.begin(), files.end(), IsDefaultReportName), 1) << testing::PrintToString(files);
}

// The reset is sent and its outcome reported before the report is made; an
// unreachable agent ends the run after the probe, before any request.
TEST_F(CommandLineTest, StatusResetIsSentAndItsOutcomeReportedBeforeTheReport) {
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(0, kClearing + "\nStatus clear success." + kGenerating + Written("r.html")));
  EXPECT_EQ(Clears(), 1);

  // A refused reset is reported and the report still written.
  ASSERT_TRUE(sim_.control(R"(set 0x180A 0 0 {"ST":4})"));
  const size_t before = sim_.requests().size();
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(0, kClearing + "\nStatus clear failed." + kGenerating + Written("r.html")));
  const std::vector<std::string> sent = sim_.requests();  // the reset was asked for and answered "no"
  EXPECT_TRUE(std::any_of(sent.begin() + before, sent.end(), [](const auto& r) { return r.find("\"OC\":6154") != r.npos; }));

  ASSERT_TRUE(sim_.stop());
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(255, kClearing + "\n ERROR: Orvana Agentless Service could not be connected\n"));
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/r.html"), "");  // the probe came first
  EXPECT_EQ(sim_.requests().size(), sent.size());
}

// ---------------------------------------------------------------------------
// Runs that share one trace directory

// A cron job and an administrator may start traced runs at the same moment;
// neither may die because the other one owns the trace files.
TEST_F(CommandLineTest, TwoTracedRunsAtOnceBothWriteTheirReports) {
  ProgramRun::Options traced;
  traced.workDir = work_;
  traced.env = {"OV_LOG_DEBUG_LEVEL=4", "TraceFileLimit=1", "OV_LOG_RINGBUF_WEIGHT=1",
                "OV_LOG_RINGBUF_DIR=" + sim_.makeDirs("/trace")};
  for (int r = 0; r < 20; ++r) {
    const std::string round = std::to_string(r);
    ProgramRun a({ZX_ZENTRIX_BIN, "-output", "a" + round + ".html"}, traced);
    ProgramRun b({ZX_ZENTRIX_BIN, "-output", "b" + round + ".html"}, traced);
    EXPECT_EQ(std::make_pair(a.wait().status(), b.wait().status()), std::make_pair(0, 0)) << "round " << r;
  }
  const std::vector<std::string> reports = Entries();
  EXPECT_EQ(reports.size(), 40u);
  for (const std::string& name : reports) {
    const std::string html = ScopedSystemRoot::readFile(work_ + "/" + name);
    EXPECT_EQ(html.size() - html.rfind("</html>"), 7u) << name;
  }
}
