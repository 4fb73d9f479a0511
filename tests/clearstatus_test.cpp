// The status reset as the user runs it: the program against a simulated
// agent, judged by its console output, exit status, output file and the
// requests the agent received.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/AgentSimulator.h"

namespace {

struct RunResult {
  int exitStatus = -1;
  std::string out;
};

// Runs the program with `args`, standard output captured and standard
// error discarded; the agent's system root is inherited via ZENTRIX_ROOT.
RunResult RunZentrix(const std::string& args) {
  RunResult result;
  const std::string command = std::string(ZX_ZENTRIX_BIN) + " " + args + " 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) result.out.append(buffer, n);
  const int status = pclose(pipe);
  if (status != -1 && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

size_t CountResets(const std::vector<std::string>& requests) {
  size_t resets = 0;
  for (const std::string& request : requests)
    if (request.find("\"OC\":6154") != std::string::npos) ++resets;
  return resets;
}

TEST(ClearStatusTest, UnreachableAgentEndsTheRunBeforeAnyRequest) {
  AgentSimulator sim;
  ASSERT_TRUE(sim.stop());
  const std::string output = sim.path("/report.html");
  WriteFile(output, "left from an earlier run");

  RunResult run = RunZentrix("-clearstatus -output " + output);
  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.out,
            "\nClearing Driver Monitor status for all components..."
            "\n ERROR: Orvana Agentless Service could not be connected\n");
  // The probe emptied the file before the agent was tried.
  EXPECT_EQ(ReadFile(output), "");
  EXPECT_TRUE(sim.requests().empty());
}

TEST(ClearStatusTest, ResetIsSentAndReportedBeforeTheReport) {
  AgentSimulator sim;
  const std::string output = sim.path("/report.html");
  RunResult run = RunZentrix("-clearstatus -output " + output);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out.rfind("\nClearing Driver Monitor status for all components...\nStatus clear success."
                          "\nGenerating HTML report...",
                          0),
            0u)
      << run.out;
  EXPECT_NE(run.out.find("\nSuccessfuly write HTML file \"" + output + "\"\n"), std::string::npos);

  const std::vector<std::string> requests = sim.requests();
  ASSERT_EQ(CountResets(requests), 1u);
  for (const std::string& request : requests) {
    if (request.find("\"OC\":6154") == std::string::npos) continue;
    EXPECT_NE(request.find("\"DA\":1"), std::string::npos) << request;
    EXPECT_NE(request.find("\"ST\":0"), std::string::npos) << request;
    EXPECT_EQ(request.find("\"OE\""), std::string::npos) << request;
    EXPECT_EQ(request.find("\"OI\""), std::string::npos) << request;
  }
}

TEST(ClearStatusTest, RefusedResetIsReportedAndTheReportStillWritten) {
  char pattern[] = "/tmp/zentrix-profile-XXXXXX";
  const int fd = mkstemp(pattern);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::string profile = pattern;
  WriteFile(profile, R"({"overrides": [{"OC": "0x180A", "ST": 4}]})");

  {
    AgentSimulator::Options options;
    options.profile = profile;
    AgentSimulator sim(options);
    const std::string output = sim.path("/report.html");
    RunResult run = RunZentrix("-clearstatus -output " + output);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_NE(run.out.find("\nStatus clear failed.\nGenerating HTML report..."), std::string::npos) << run.out;
    EXPECT_EQ(CountResets(sim.requests()), 1u);
    EXPECT_NE(ReadFile(output), "");
  }
  unlink(profile.c_str());
}

TEST(ClearStatusTest, NoResetWithoutTheSwitch) {
  AgentSimulator sim;
  const std::string output = sim.path("/report.html");
  RunResult run = RunZentrix("-output " + output);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out.find("Clearing"), std::string::npos);
  EXPECT_EQ(CountResets(sim.requests()), 0u);
}

}  // namespace
