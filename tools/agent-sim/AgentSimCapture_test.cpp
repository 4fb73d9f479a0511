// Capture mode end to end: a simulator plays the real agent, a second one
// relays Zentrix to it and captures, and a third one replays the capture.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Profile.h"
#include "tests/support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

// The report `program` writes to `file` with `args`, its clock masked.
std::string Masked(std::vector<std::string> program, const std::string& file, const std::vector<std::string>& args,
                   const std::vector<std::string>& env) {
  program.insert(program.end(), {"-output", file});
  program.insert(program.end(), args.begin(), args.end());
  ProgramRun::Options options;
  options.env = env;
  const ProgramRun::Outcome run = RunProgram(program, options);
  EXPECT_EQ(run.status(), 0) << run.out << run.err;
  std::string html = ScopedSystemRoot::readFile(file);
  const size_t open = html.find("<h3>"), close = html.find("</h3>", open);
  return close == std::string::npos ? html : html.erase(open, close - open);
}

// The report Zentrix makes against the agent under `root`.
std::string Report(const std::string& root, const std::vector<std::string>& args = {}) {
  return Masked({ZX_ZENTRIX_BIN}, root + "/report.html", args, {"ZENTRIX_ROOT=" + root});
}

AgentSimulator::Options Relay(const AgentSimulator& agent, const std::string& capture) {
  return {"", {"--capture", capture, "--upstream", agent.root()}};
}

TEST(AgentSimCaptureTest, AReplayedCaptureGivesTheLiveReport) {
  const struct {
    const char* profile;
    std::vector<std::string> args;
  } cases[] = {{"typical", {}}, {"degraded", {}}, {"degraded", {"-clearstatus"}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.profile + testing::PrintToString(c.args));
    ScopedSystemRoot scratch;
    const std::string capture = scratch.path("/capture.json");
    std::string live;
    {
      AgentSimulator agent({c.profile, {}, false});
      AgentSimulator relay(Relay(agent, capture));
      live = Report(relay.root(), c.args);
      EXPECT_EQ(Report(agent.root(), c.args), live) << "the relay changed something";
      EXPECT_EQ(relay.terminate(), 0);
    }
    // As support replays it, with this build's programs.
    const std::string build = fs::path(ZX_ZENTRIX_BIN).parent_path();
    EXPECT_TRUE(Masked({"/bin/sh", ZX_SOURCE_DIR "/make-report"}, scratch.path("/replay.html"), c.args,
                       {"ZENTRIX_PROFILE=" + capture, "ZENTRIX_BUILD=" + build}) == live);
  }
}

// What the agent pushes on an event channel while the relay captures is
// pushed again on replay.
TEST(AgentSimCaptureTest, RelayedEventsReplay) {
  ScopedSystemRoot scratch;
  const std::string capture = scratch.path("/capture.json");
  auto pushed = [](AgentSimulator& source, AgentSimulator& served) {
    TestClient events(served.path("/dev/omadaj"));
    events.Exchange(Sip(R"({"OC":65440,"OE":4608,"CA":0,"DA":{"RAW":[90,120,0]}})"));  // an event channel
    ASSERT_TRUE(source.waitForEventChannels(1));
    ASSERT_EQ(source.query("event"), "ok sent=1");
    EXPECT_EQ(events.ReadFrame().value_or(""), Sip(R"({"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580})"));
  };
  {
    AgentSimulator agent;
    AgentSimulator relay(Relay(agent, capture));
    pushed(agent, relay);
  }
  AgentSimulator replay({capture});
  pushed(replay, replay);
}

TEST(AgentSimCaptureTest, RedactionLeavesNoIdentityInTheProfileOrItsReport) {
  ScopedSystemRoot scratch;
  // typical.json, with a log message that names the host and an address, and
  // an address not in its usual form.
  std::string typical = ScopedSystemRoot::readFile(std::string(AGENT_SIM_PROFILES) + "/typical.json");
  const auto insert = [&typical](const std::string& after, const std::string& text) {
    typical.insert(typical.find(after) + after.size(), text);
  };
  insert(R"("eventLog": [)", R"({"severity": 2, "code": 4097, "time": 1717200100, "message": )"
                             R"("rack07-node03.example.net: link to 10.17.4.23 lost; rack07-node03 isolated"},)");
  insert(R"("2001:db8:17::23")", R"(, "2001:DB8:17:0:0:0:0:24")");
  const std::string handWritten = scratch.writeFile("/typical.json", typical);

  const std::string capture = scratch.path("/capture.json");
  std::string live;
  {
    AgentSimulator agent({handWritten, {}, false});
    AgentSimulator relay(Relay(agent, capture));
    live = Report(relay.root());
  }
  const char* const identities[] = {
      "VM4K2203817", "CH-0017-4421", "IT-ASSET-0815", "4c4c4544-0043-3510-8052-b3c04f4e3432", "BD7731K0925",
      "MB-2400-G3-R12", "rack07-node03", "10.17.4.23", "fe80::3efd:feff:fe9a:12c4", "2001:db8:17::23",
      "2001:DB8:17:0:0:0:0:24", "2001:db8:17::24",
      // The addresses as a capture holds them.
      "10,17,4,23", "254,128,0,0,0,0,0,0,62,253,254,255,254,154,18,196", "32,1,13,184,0,23,0,0,0,0,0,0,0,0,0,35",
      "32,1,13,184,0,23,0,0,0,0,0,0,0,0,0,36"};
  for (const std::string& in : {capture, handWritten}) {
    SCOPED_TRACE(in);
    const std::string out = in + ".redacted", again = in + ".again";
    ASSERT_EQ(RunProgram({ZX_AGENT_SIM, "--redact", in, out}).status(), 0);
    ASSERT_EQ(RunProgram({ZX_AGENT_SIM, "--redact", in, again}).status(), 0);
    const std::string redacted = ScopedSystemRoot::readFile(out);
    EXPECT_EQ(ScopedSystemRoot::readFile(again), redacted) << "not deterministic";
    AgentSimulator replay({out, {}, false});
    const std::string report = Report(replay.root());
    for (const char* identity : identities) {
      EXPECT_EQ(redacted.find(identity), std::string::npos) << identity;
      EXPECT_EQ(report.find(identity), std::string::npos) << identity;
    }
    // Every row is still there, the log's records included.
    auto rows = [](const std::string& html) { return std::count(html.begin(), html.end(), '\n'); };
    EXPECT_EQ(rows(report), rows(live));
    // Placeholders from the documentation networks, numbered in order.
    EXPECT_NE(report.find(": link to 192.0.2.1 lost; "), std::string::npos);
    EXPECT_NE(report.find(">2001:db8::1<"), std::string::npos);
    EXPECT_NE(report.find("5400"), std::string::npos) << "health data must stay";
  }
}

// SIGTERM is the replay test's ending.
TEST(AgentSimCaptureTest, EndsCleanlyWhenTheAgentGoesOrOnASignal) {
  ScopedSystemRoot scratch, relayRoot;
  const std::string capture = scratch.path("/capture.json");
  const ProgramRun::Outcome run =
      RunProgram({ZX_AGENT_SIM, "--root", relayRoot.root(), "--capture", capture, "--upstream", scratch.root()});
  EXPECT_EQ(run.status(), 3) << "no agent to relay";
  EXPECT_NE(run.err.find(scratch.path("/dev/omadsj")), std::string::npos) << run.err;
  EXPECT_FALSE(fs::exists(relayRoot.path("/run/agent-sim.ctl")));
  EXPECT_FALSE(fs::exists(capture));

  AgentSimulator agent;
  AgentSimulator relay(Relay(agent, capture));
  TestClient client(relay.path("/dev/omadsj"));
  EXPECT_NE(client.Exchange(Sip(R"({"OC":768,"CA":0})")), "<no frame>");
  ASSERT_TRUE(agent.stop());
  EXPECT_TRUE(WaitUntil([&] { return !fs::exists(relay.path("/dev/omadsj")); })) << "the relay outlived the agent";
  EXPECT_EQ(relay.terminate(SIGINT), 0);
  client.Read(SIZE_MAX, 2000);
  EXPECT_TRUE(client.Closed());
  agentsim::Profile profile;
  std::string error;
  ASSERT_TRUE(agentsim::Profile::Load(capture, profile, error)) << error;
  ASSERT_NE(profile.values.Find({0x0300, 0, 0}), nullptr);
  EXPECT_EQ(profile.values.Find({0x0300, 0, 0})->data, "6");
}

}  // namespace
