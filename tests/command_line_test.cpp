// Runs the built Zentrix binary in a scratch working directory under a
// scratch system root and checks what a user sees: console text, exit status
// and the files left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
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

// Starts the binary with exactly `args` (empty strings included) in `cwd`;
// `pathPrefix` goes in front of PATH. Bounded: a hung child is killed.
RunResult RunZentrix(const std::vector<std::string>& args, const std::string& cwd,
                     const std::string& pathPrefix = "") {
  RunResult result;
  int out[2];
  if (pipe(out) != 0) return result;
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], STDOUT_FILENO);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, STDERR_FILENO);
    close(out[0]);
    close(out[1]);
    if (chdir(cwd.c_str()) != 0) _exit(126);
    if (!pathPrefix.empty()) {
      const char* path = getenv("PATH");
      setenv("PATH", (pathPrefix + ":" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(ZX_ZENTRIX_BIN));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(ZX_ZENTRIX_BIN, argv.data());
    _exit(127);
  }
  close(out[1]);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  char buffer[4096];
  for (;;) {
    pollfd p = {out[0], POLLIN, 0};
    int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                    deadline - std::chrono::steady_clock::now())
                                    .count());
    if (left <= 0 || poll(&p, 1, left) <= 0) {
      kill(pid, SIGKILL);
      break;
    }
    ssize_t n = read(out[0], buffer, sizeof buffer);
    if (n <= 0) break;
    result.out.append(buffer, static_cast<size_t>(n));
  }
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
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

std::string WriteFailure(const std::string& path, int error) {
  return "\n!! Failed to write HTML file \"" + path + "\"! (Error " + strerror(error) + ")\n";
}

// "Zentrix_" + 14 digits + ".html" (std::regex trips sanitizer build warnings).
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

// A listening socket that remembers whether anyone connected.
class ListeningSocket {
 public:
  explicit ListeningSocket(const std::string& path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
          listen(fd_, 16) == 0;
  }
  ~ListeningSocket() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return ok_; }
  bool wasConnected() const {
    int client = accept(fd_, nullptr, nullptr);
    if (client < 0) return false;
    close(client);
    return true;
  }

 private:
  int fd_ = -1;
  bool ok_ = false;
};

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override { work_ = root_.makeDirs("/work"); }

  ScopedSystemRoot root_;
  std::string work_;
};

}  // namespace

TEST_F(CommandLineTest, HelpForEveryCommandLineThatDoesNotAddUp) {
  const std::vector<std::vector<std::string>> lines = {
      {"-?"},
      {"foo"},
      {"/?"},
      {"-output"},
      {"-output", "a", "b"},
      {"-output", "-clearstatus"},
      {"-clearstatus", "-clearstatus"},
      {"-autostart", "-?"},
      {"-verbose"},
      {"-output", "r.html", "-Output", "s.html"},
  };
  for (const auto& args : lines) {
    std::string shown;
    for (const auto& a : args) shown += " " + a;
    SCOPED_TRACE(shown);
    RunResult run = RunZentrix(args, work_);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, kHelp);
  }
  // Help never creates a report or probes a file.
  EXPECT_TRUE(Entries(work_).empty());
}

TEST_F(CommandLineTest, UnwritablePathFailsBeforeAnyAgentTraffic) {
  // A daemon that looks installed, running and reachable, so an attach
  // attempt would show up as a connection.
  root_.writeFile("/usr/sbin/omad", "");
  root_.writeFile("/var/run/omad.pid", "1\n");
  root_.makeDirs("/dev");
  ListeningSocket probe(root_.root() + "/dev/omads");
  ListeningSocket requests(root_.root() + "/dev/omadsj");
  ListeningSocket events(root_.root() + "/dev/omadaj");
  ASSERT_TRUE(probe.ok() && requests.ok() && events.ok());

  const std::string missingDir = work_ + "/missing/r.html";
  RunResult run = RunZentrix({"-clearstatus", "-output", missingDir}, work_);
  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.out, WriteFailure(missingDir, ENOENT));

  run = RunZentrix({"-OUTPUT", work_}, work_);  // a directory
  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.out, WriteFailure(work_, EISDIR));

  EXPECT_FALSE(probe.wasConnected());
  EXPECT_FALSE(requests.wasConnected());
  EXPECT_FALSE(events.wasConnected());
}

TEST_F(CommandLineTest, ProbeEmptiesTheFileEvenWhenTheAgentIsUnreachable) {
  // No daemon in the scratch root: the status reset cannot attach and ends
  // the run, after the probe has already emptied the named file.
  const std::string report = work_ + "/old.html";
  std::ofstream(report) << "previous report";
  RunResult run = RunZentrix({"-clearstatus", "-output", report}, work_);
  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.out.rfind("\nClearing Driver Monitor status for all components...", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("ERROR: Orvana Agentless Service could not be connected"), std::string::npos)
      << run.out;
  EXPECT_EQ(fs::file_size(report), 0u);
}

// A report run attaches to the agent once per page, so these runs talk to the
// agent simulator (its own scratch root replaces the fixture's while it lives).
class ReportRunTest : public CommandLineTest {
 protected:
  AgentSimulator sim_;
};

TEST_F(ReportRunTest, NoArgumentsWritesTimestampedReportInWorkingDirectory) {
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
  // The heading's clock is read after the file name's and never earlier.
  const size_t open = html.find("<h3>");
  ASSERT_NE(open, std::string::npos);
  std::string headingDigits;
  for (char c : html.substr(open + 4, 19)) {
    if (isdigit(static_cast<unsigned char>(c))) headingDigits += c;
  }
  ASSERT_EQ(headingDigits.size(), 14u) << html.substr(open, 30);
  EXPECT_GE(headingDigits, files[0].substr(8, 14));
}

TEST_F(ReportRunTest, CaseInsensitiveSwitchesWriteNamedFileAndStartBrowser) {
  // A stand-in browser opener that records its arguments.
  const std::string bin = root_.makeDirs("/fakebin");
  const std::string opener = bin + "/xdg-open";
  std::ofstream(opener) << "#!/bin/sh\nprintf '%s|' \"$@\" >> \"" << work_ << "/opened.txt\"\n";
  fs::permissions(opener, fs::perms::owner_all);

  RunResult run = RunZentrix({"-OUTPUT", "r.html", "-AutoStart"}, work_, bin);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, "\nGenerating HTML report...\nSuccessfuly write HTML file \"r.html\"\n");
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/opened.txt"), "r.html|");
  EXPECT_EQ(ScopedSystemRoot::readFile(work_ + "/r.html").rfind("<!DOCTYPE html>", 0), 0u);

  // "-5" is a file name, and an empty name falls back to the default one.
  run = RunZentrix({"-output", "-5"}, work_);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(fs::exists(work_ + "/-5"));
  run = RunZentrix({"-output", ""}, work_);
  EXPECT_EQ(run.exitStatus, 0);
  const size_t quote = run.out.find('"');
  ASSERT_NE(quote, std::string::npos) << run.out;
  EXPECT_TRUE(IsDefaultReportName(run.out.substr(quote + 1, 27))) << run.out;
  EXPECT_EQ(run.out.substr(quote + 28), "\"\n");
}
