// The status reset as the user runs it: the program against a simulated
// agent, judged by its console output, exit status, output file and the
// requests the agent received.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/AgentSimulator.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

struct RunResult {
  int exitStatus = -1;
  std::string out;
};

// Runs the program with `args`, standard output captured and standard
// error discarded; the agent's system root is inherited via ZENTRIX_ROOT.
RunResult RunZentrix(const std::string& args) {
  RunResult result;
  FILE* pipe = popen((std::string(ZX_ZENTRIX_BIN) + " " + args + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.out.append(buffer, n);
  const int status = pclose(pipe);
  if (status != -1 && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

// The recorded reset requests (value id 0x180A).
std::vector<std::string> Resets(const AgentSimulator& sim) {
  std::vector<std::string> resets;
  for (const std::string& request : sim.requests()) {
    if (request.find("\"OC\":6154") != std::string::npos) resets.push_back(request);
  }
  return resets;
}

TEST(ClearStatusTest, UnreachableAgentEndsTheRunBeforeAnyRequest) {
  AgentSimulator sim;
  ASSERT_TRUE(sim.stop());
  const std::string output = sim.path("/report.html");
  std::ofstream(output) << "left from an earlier run";

  RunResult run = RunZentrix("-clearstatus -output " + output);
  EXPECT_EQ(run.exitStatus, 255);
  EXPECT_EQ(run.out,
            "\nClearing Driver Monitor status for all components..."
            "\n ERROR: Orvana Agentless Service could not be connected\n");
  // The probe emptied the file before the agent was tried.
  EXPECT_EQ(ScopedSystemRoot::readFile(output), "");
  EXPECT_TRUE(sim.requests().empty());
}

TEST(ClearStatusTest, ResetOnlyWithTheSwitchAndItsOutcomeReportedBeforeTheReport) {
  AgentSimulator sim;
  const std::string output = sim.path("/report.html");
  RunResult run = RunZentrix("-output " + output);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out.find("Clearing"), std::string::npos);
  EXPECT_TRUE(Resets(sim).empty());

  run = RunZentrix("-clearstatus -output " + output);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, "\nClearing Driver Monitor status for all components...\nStatus clear success."
                     "\nGenerating HTML report...\nSuccessfuly write HTML file \"" + output + "\"\n");
  const std::vector<std::string> resets = Resets(sim);
  ASSERT_EQ(resets.size(), 1u);
  for (const char* member : {"\"DA\":1", "\"ST\":0"}) EXPECT_NE(resets[0].find(member), std::string::npos) << resets[0];
  for (const char* member : {"\"OE\"", "\"OI\""}) EXPECT_EQ(resets[0].find(member), std::string::npos) << resets[0];

  // A refused reset is reported and the report still written.
  ASSERT_TRUE(sim.control(R"(set 0x180A 0 0 {"ST":4})"));
  sim.clearRequests();
  run = RunZentrix("-clearstatus -output " + output);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out.rfind("\nClearing Driver Monitor status for all components...\nStatus clear failed."
                          "\nGenerating HTML report...",
                          0),
            0u)
      << run.out;
  EXPECT_EQ(Resets(sim).size(), 1u);
  EXPECT_NE(ScopedSystemRoot::readFile(output), "");
}

}  // namespace
