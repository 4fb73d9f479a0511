// Runs the built Zentrix binary in a scratch working directory against the
// agent simulator and checks what a user sees (console text, exit status, the
// files left behind) and what the agent received.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
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

const std::string kHelp =
    "\nSyntax:\nZentrix\nZentrix           generates HTML output file Zentrix_<timestamp>.html\n"
    "\n   -output [file name]   generates HTML output file [file name]"
    "\n   -clearstatus          clears Driver Monitor status and generates HTML output file Zentrix_<timestamp>.html"
    "\n   -autostart             starts default browser after generating the HTML report\n   -?                    shows this help\n";
const std::string kClearing = "\nClearing Driver Monitor status for all components...";
const std::string kGenerating = "\nGenerating HTML report...";

std::string Written(const std::string& path) { return "\nSuccessfuly write HTML file \"" + path + "\"\n"; }
std::string Quote(const std::string& text) { return "'" + text + "'"; }

// "Zentrix_<YYYYmmddHHMMSS>.html".
bool IsDefaultReportName(const std::string& name) {
  struct tm stamp = {};
  char reprinted[64];
  const char* rest = strptime(name.c_str(), "Zentrix_%Y%m%d%H%M%S.html", &stamp);
  return rest && !*rest && strftime(reprinted, sizeof reprinted, "Zentrix_%Y%m%d%H%M%S.html", &stamp) &&
         name == reprinted;
}

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(work_); }

  // Runs the binary with exactly `args` (empty ones included) in the work
  // directory, with `pathPrefix` in front of PATH; a hung run is ended after
  // 30 seconds. The exit status is -1 when the process did not exit normally.
  std::pair<int, std::string> Run(const std::vector<std::string>& args, const std::string& pathPrefix = "") {
    std::string command = "cd " + Quote(work_) + " && ";
    if (!pathPrefix.empty()) command += "PATH=" + Quote(pathPrefix + ":" + getenv("PATH")) + " ";
    command += std::string("timeout 30 ") + ZX_ZENTRIX_BIN;
    for (const std::string& a : args) command += " " + Quote(a);
    std::pair<int, std::string> result{-1, ""};
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.second.append(buffer, n);
    const int status = pclose(pipe);
    if (status != -1 && WIFEXITED(status)) result.first = WEXITSTATUS(status);
    return result;
  }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(work_)) names.push_back(e.path().filename().string());
    return names;
  }

  // The recorded status reset requests (value id 0x180A).
  std::vector<std::string> Resets() const {
    std::vector<std::string> found = sim_.requests();
    found.erase(std::remove_if(found.begin(), found.end(),
                               [](const std::string& r) { return r.find("\"OC\":6154") == std::string::npos; }),
                found.end());
    return found;
  }

  AgentSimulator sim_;  // records every request it receives
  const std::string work_ = sim_.path("/work");
};

}  // namespace

TEST_F(CommandLineTest, HelpForEveryCommandLineThatDoesNotAddUp) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"-?"}, {"foo"}, {"/?"}, {"-output"}, {"-output", "a", "b"}, {"-output", "-clearstatus"},
           {"-clearstatus", "-clearstatus"}, {"-autostart", "-?"}, {"-verbose"},
           {"-output", "r.html", "-Output", "s.html"}}) {
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
  EXPECT_EQ(html.rfind("<!DOCTYPE html>\n<html>\n", 0), 0u);
  EXPECT_EQ(html.rfind("</html>"), html.size() - 7);
  // The heading's clock is read after the file name's, never earlier.
  struct tm heading = {};
  char digits[16] = "";
  const size_t h3 = html.find("<h3>");
  ASSERT_NE(h3, std::string::npos);
  ASSERT_NE(strptime(html.c_str() + h3 + 4, "%Y-%m-%d %H:%M:%S</h3>", &heading), nullptr);
  strftime(digits, sizeof digits, "%Y%m%d%H%M%S", &heading);
  EXPECT_GE(digits, files[0].substr(8, 14));
  EXPECT_TRUE(Resets().empty());
}

TEST_F(CommandLineTest, CaseInsensitiveSwitchesWriteNamedFileAndStartBrowser) {
  // A stand-in browser opener that records its arguments.
  const std::string bin = sim_.path("/fakebin");
  fs::create_directories(bin);
  std::ofstream(bin + "/xdg-open") << "#!/bin/sh\nprintf '%s|' \"$@\" >> \"" << work_ << "/opened.txt\"\n";
  fs::permissions(bin + "/xdg-open", fs::perms::owner_all);
  EXPECT_EQ(Run({"-OUTPUT", "my report.html", "-AutoStart"}, bin), std::make_pair(0, kGenerating + Written("my report.html")));
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/opened.txt"), "my report.html|");  // one quoted argument
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/my report.html").rfind("<!DOCTYPE html>", 0), 0u);

  // "-5" is a file name, and an empty name falls back to the default one.
  EXPECT_EQ(Run({"-output", "-5"}).first, 0);
  EXPECT_TRUE(fs::exists(work_ + "/-5"));
  EXPECT_EQ(Run({"-output", ""}).first, 0);
  const std::vector<std::string> files = Entries();
  EXPECT_EQ(std::count_if(files.begin(), files.end(), IsDefaultReportName), 1) << testing::PrintToString(files);
}

// The reset is sent and its outcome reported before the report is made; an
// unreachable agent ends the run after the probe, before any request.
TEST_F(CommandLineTest, StatusResetIsSentAndItsOutcomeReportedBeforeTheReport) {
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(0, kClearing + "\nStatus clear success." + kGenerating + Written("r.html")));
  std::vector<std::string> sent = Resets();
  ASSERT_EQ(sent.size(), 1u);
  for (const char* member : {"\"DA\":1", "\"ST\":0"}) EXPECT_NE(sent[0].find(member), std::string::npos) << sent[0];
  for (const char* member : {"\"OE\"", "\"OI\""}) EXPECT_EQ(sent[0].find(member), std::string::npos) << sent[0];

  // A refused reset is reported and the report still written.
  ASSERT_TRUE(sim_.control(R"(set 0x180A 0 0 {"ST":4})"));
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(0, kClearing + "\nStatus clear failed." + kGenerating + Written("r.html")));
  EXPECT_EQ(Resets().size(), 2u);

  ASSERT_TRUE(sim_.stop());
  sim_.clearRequests();
  EXPECT_EQ(Run({"-clearstatus", "-output", "r.html"}),
            std::make_pair(255, kClearing + "\n ERROR: Orvana Agentless Service could not be connected\n"));
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/r.html"), "");  // the probe came first
  EXPECT_TRUE(sim_.requests().empty());
}
