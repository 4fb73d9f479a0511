// Runs the built Zentrix binary in a scratch working directory against the
// agent simulator and checks what a user sees: console text, exit status and
// the files left behind.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/AgentSimulator.h"
#include "tests/support/ScopedSystemRoot.h"

namespace fs = std::filesystem;

namespace {

struct RunResult {
  int exitStatus = -1;  // -1 when the process did not exit normally
  std::string out;
};

std::string Quote(const std::string& text) { return "'" + text + "'"; }

// Runs the binary with exactly `args` (empty ones included) in `cwd`, with
// `pathPrefix` in front of PATH; a hung run is ended after 30 seconds.
RunResult RunZentrix(const std::vector<std::string>& args, const std::string& cwd,
                     const std::string& pathPrefix = "") {
  std::string command = "cd " + Quote(cwd) + " && ";
  if (!pathPrefix.empty()) command += "PATH=" + Quote(pathPrefix + ":" + getenv("PATH")) + " ";
  command += std::string("timeout 30 ") + ZX_ZENTRIX_BIN;
  for (const std::string& a : args) command += " " + Quote(a);
  RunResult result;
  FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.out.append(buffer, n);
  const int status = pclose(pipe);
  if (status != -1 && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

const std::string kHelp =
    "\nSyntax:"
    "\nZentrix"
    "\nZentrix           generates HTML output file Zentrix_<timestamp>.html"
    "\n"
    "\n   -output [file name]   generates HTML output file [file name]"
    "\n   -clearstatus          clears Driver Monitor status and generates HTML output file "
    "Zentrix_<timestamp>.html"
    "\n   -autostart             starts default browser after generating the HTML report"
    "\n   -?                    shows this help"
    "\n";

// "Zentrix_" + 14 digits + ".html".
bool IsDefaultReportName(const std::string& name) {
  if (name.size() != 27 || name.rfind("Zentrix_", 0) != 0 || name.substr(22) != ".html") return false;
  for (size_t i = 8; i < 22; ++i) {
    if (!isdigit(static_cast<unsigned char>(name[i]))) return false;
  }
  return true;
}

std::vector<std::string> Entries(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  return names;
}

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(work_); }

  AgentSimulator sim_;  // records every request it receives
  const std::string work_ = sim_.path("/work");
};

}  // namespace

TEST_F(CommandLineTest, HelpForEveryCommandLineThatDoesNotAddUp) {
  const std::vector<std::vector<std::string>> lines = {
      {"-?"}, {"foo"}, {"/?"}, {"-output"}, {"-output", "a", "b"}, {"-output", "-clearstatus"},
      {"-clearstatus", "-clearstatus"}, {"-autostart", "-?"}, {"-verbose"},
      {"-output", "r.html", "-Output", "s.html"},
  };
  for (const auto& args : lines) {
    SCOPED_TRACE(testing::PrintToString(args));
    RunResult run = RunZentrix(args, work_);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, kHelp);
  }
  // Help never creates a report, probes a file or talks to the agent.
  EXPECT_TRUE(Entries(work_).empty());
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(CommandLineTest, UnwritablePathFailsBeforeAnyAgentTraffic) {
  const struct {
    std::vector<std::string> args;
    std::string path;
    int error;
  } cases[] = {{{"-clearstatus", "-output", work_ + "/missing/r.html"}, work_ + "/missing/r.html", ENOENT},
               {{"-OUTPUT", work_}, work_, EISDIR}};
  for (const auto& c : cases) {
    RunResult run = RunZentrix(c.args, work_);
    EXPECT_EQ(run.exitStatus, 255);
    EXPECT_EQ(run.out, "\n!! Failed to write HTML file \"" + c.path + "\"! (Error " + strerror(c.error) + ")\n");
  }
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(CommandLineTest, NoArgumentsWritesTimestampedReportInWorkingDirectory) {
  RunResult run = RunZentrix({}, work_);
  EXPECT_EQ(run.exitStatus, 0);
  const std::vector<std::string> files = Entries(work_);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(IsDefaultReportName(files[0])) << files[0];
  EXPECT_EQ(run.out, "\nGenerating HTML report...\nSuccessfuly write HTML file \"" + files[0] + "\"\n");

  const std::string html = ScopedSystemRoot::readFile(work_ + "/" + files[0]);
  EXPECT_EQ(html.rfind("<!DOCTYPE html>\n<html>\n", 0), 0u);
  ASSERT_GT(html.size(), 7u);
  EXPECT_EQ(html.substr(html.size() - 7), "</html>");
  // The heading's clock is read after the file name's, never earlier.
  const size_t open = html.find("<h3>");
  ASSERT_NE(open, std::string::npos);
  std::string headingDigits;
  for (char c : html.substr(open + 4, 19)) {
    if (isdigit(static_cast<unsigned char>(c))) headingDigits += c;
  }
  ASSERT_EQ(headingDigits.size(), 14u) << html.substr(open, 30);
  EXPECT_GE(headingDigits, files[0].substr(8, 14));
}

TEST_F(CommandLineTest, CaseInsensitiveSwitchesWriteNamedFileAndStartBrowser) {
  // A stand-in browser opener that records its arguments.
  const std::string bin = sim_.path("/fakebin");
  fs::create_directories(bin);
  std::ofstream(bin + "/xdg-open") << "#!/bin/sh\nprintf '%s|' \"$@\" >> \"" << work_ << "/opened.txt\"\n";
  fs::permissions(bin + "/xdg-open", fs::perms::owner_all);

  RunResult run = RunZentrix({"-OUTPUT", "my report.html", "-AutoStart"}, work_, bin);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, "\nGenerating HTML report...\nSuccessfuly write HTML file \"my report.html\"\n");
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/opened.txt"), "my report.html|");  // one quoted argument
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/my report.html").rfind("<!DOCTYPE html>", 0), 0u);

  // "-5" is a file name, and an empty name falls back to the default one.
  EXPECT_EQ(RunZentrix({"-output", "-5"}, work_).exitStatus, 0);
  EXPECT_TRUE(fs::exists(work_ + "/-5"));
  run = RunZentrix({"-output", ""}, work_);
  EXPECT_EQ(run.exitStatus, 0);
  const size_t quote = run.out.find('"');
  ASSERT_NE(quote, std::string::npos) << run.out;
  EXPECT_TRUE(IsDefaultReportName(run.out.substr(quote + 1, 27))) << run.out;
  EXPECT_EQ(run.out.substr(quote + 28), "\"\n");
}
