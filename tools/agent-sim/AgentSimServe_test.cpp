// The simulator process seen from its sockets: one table of what goes in and
// what comes back, through the reply rules, faults, events and daemon stops
// the whole-program tests do not reach (the traced event session pins the
// event commands and raw event frames), and the ways the process ends.
#include <signal.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

const char kRequests[] = "/dev/omadsj", kEvents[] = "/dev/omadaj", kClassic[] = "/dev/omads";
const char* const kDaemonFiles[] = {"/usr/sbin/omad", "/var/run/omad.pid", kClassic, kRequests, kEvents,
                                    "/run/agent-sim.ctl"};
// typical.json has six fans; its first event follows.
const std::string kFans = Sip(R"({"OC":768,"CA":0})"), kFansReply = Sip(R"({"OC":768,"CA":0,"ST":0,"DA":6})");
const std::string kPayload = kFansReply + '\0';
const std::string kFirstEvent = Framed(Sip(R"({"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580})"));
const std::string kReset = Sip(R"({"OC":6154,"DA":1,"ST":0,"CA":0})");
std::string Fan(const std::string& reply) { return Framed(Sip(R"({"OC":769,"OI":1,"CA":0)" + reply + "}")); }
// The init command of a client named "Zx" and the start of its reply.
const std::string kInit = Framed(Sip(R"({"OC":65440,"OE":4608,"CA":0,"DA":{"RAW":[90,120,0]}})"));
const std::string kInitReply = R"({"SIP":{"V":1,"CMD":[{"OC":65440,"OE":4608,"CA":0,"ST":0,"DA":{"RAW":[90,120,0,)";

struct WireCase {
  const char* name;
  std::vector<std::string> controls;  // sent first; "!" marks one that must be refused
  const char* socket;                 // every connection but the classic one has sent the init command
  std::string send, expect;           // the bytes sent and every byte that comes back
  bool closed = false;                // then the simulator closes the connection
  int quietMs = 0;                    // nothing may arrive this long first
  int end = 0;                        // then this signal ends the simulator: it leaves nothing behind
};

const WireCase kCases[] = {
    // Missing OE/OI mean 0, leftover ST/DA of a reused record are not data, V is always 1.
    {"a reused record", {}, kRequests, Framed(Sip(R"({"OC":768,"CA":0,"ST":5,"DA":"old"})", 7)), Framed(kFansReply)},
    {"another cabinet", {}, kRequests, Framed(Sip(R"({"OC":768,"CA":1})")), Framed(Sip(R"({"OC":768,"CA":1,"ST":4})"))},
    {"two commands", {}, kRequests, Framed(Sip(R"({"OC":768,"CA":0},{"OC":1})")),
     Framed(Sip(R"({"OC":768,"CA":0,"ST":0,"DA":6},{"OC":1,"ST":4})"))},
    {"not a record", {}, kRequests, Framed("[1]") + Framed("not json"), Framed(Sip("")) + Framed(Sip(""))},
    {"an empty frame", {}, kRequests, LengthWord(0), Framed(Sip(""))},
    {"a frame without its NUL", {}, kRequests, LengthWord(kFans.size()) + kFans, Framed(kFansReply)},
    {"a 4 GB frame is not waited for", {}, kRequests, LengthWord(0xFFFFFFFF) + "{}", "", true},
    {"the classic socket only listens", {}, kClassic, "whatever the classic protocol is", "", false, 100},
    {"set at run time", {R"(set 0x0301 0 1 {"ST":0,"DA":"text"})"}, kRequests, Fan(""), Fan(R"(,"ST":0,"DA":"text")")},
    {"a status alone", {R"(set 769 0 1 {"ST":12})"}, kRequests, Fan(""), Fan(R"(,"ST":12)")},
    {"unset", {"unset 769 0 1"}, kRequests, Fan(""), Fan(R"(,"ST":4)")},
    {"refused commands change nothing",
     {"fault close", "!fault split 0", "!set 769 0", "!set 769 0 1 [1]", "!set x 0 1 {}", "!unset", "!frobnicate",
      "!", "!delay soon", "!event [1]"},
     kRequests, Framed(kFans), "", true},
    // A reset turns every Driver Monitor warning and error into OK, unless an override refuses it.
    {"status reset", {R"(set 0x1801 0 2 {"ST":0,"DA":3})"}, kRequests,
     Framed(kReset) + Framed(Sip(R"({"OC":6145,"OI":2,"CA":0})")),
     Framed(Sip(R"({"OC":6154,"CA":0,"ST":0,"DA":1})")) + Framed(Sip(R"({"OC":6145,"OI":2,"CA":0,"ST":0,"DA":1})"))},
    {"status reset refused", {R"(set 0x180A 0 0 {"ST":21})", R"(set 0x1801 0 2 {"ST":0,"DA":3})"}, kRequests,
     Framed(kReset) + Framed(Sip(R"({"OC":6145,"OI":2,"CA":0})")),
     Framed(Sip(R"({"OC":6154,"CA":0,"ST":21})")) + Framed(Sip(R"({"OC":6145,"OI":2,"CA":0,"ST":0,"DA":3})"))},
    {"delay", {"delay 400"}, kRequests, Framed(kFans), Framed(kFansReply), false, 150},
    {"split", {"fault split 3 1"}, kRequests, Framed(kFans), Framed(kFansReply)},
    {"close", {"fault close"}, kRequests, Framed(kFans), "", true},
    {"invalid-json", {"fault invalid-json"}, kRequests, Framed(kFans),
     Framed(kFansReply.substr(0, kFansReply.size() / 2))},
    {"version", {"fault version 3 oc=768"}, kRequests, Framed(kFans),
     Framed(R"({"SIP":{"V":3,"CMD":[{"OC":768,"CA":0,"ST":0,"DA":6}]}})")},
    {"version of another value", {"fault version 3 oc=1024"}, kRequests, Framed(kFans), Framed(kFansReply)},
    {"length zero", {"fault length zero"}, kRequests, Framed(kFans), LengthWord(0) + kPayload},
    {"length max", {"fault length max"}, kRequests, Framed(kFans), LengthWord(0xFFFFFFFF) + kPayload},
    {"length over", {"fault length over"}, kRequests, Framed(kFans), LengthWord(kPayload.size() + 64) + kPayload},
    {"events reach only event channels", {"event-text x"}, kRequests, "", "", false, 100},
    {"event text", {"event-text anything at all"}, kEvents, "", Framed("anything at all")},
    {"half an event", {"event-raw-truncated"}, kEvents, "", kFirstEvent.substr(0, kFirstEvent.size() / 2)},
    {"event channels closed", {"event-close"}, kEvents, "", "", true},
    {"stop drops every client", {"stop"}, kEvents, "", "", true},
    {"restart drops every client", {"restart"}, kRequests, "", "", true},
    {"SIGTERM", {}, kRequests, "", "", true, 0, SIGTERM},
    {"SIGINT", {}, kRequests, "", "", true, 0, SIGINT},
    {"quit", {"quit"}, kRequests, "", "", true, 0, SIGTERM},
};

TEST(AgentSimServeTest, WhatGoesInAndWhatComesBack) {
  std::unique_ptr<AgentSimulator> sim;
  for (const WireCase& c : kCases) {
    SCOPED_TRACE(c.name);
    if (!sim) sim = std::make_unique<AgentSimulator>();
    for (const char* file : kDaemonFiles) EXPECT_TRUE(fs::exists(sim->path(file))) << file;
    TestClient client(sim->path(c.socket));
    if (c.socket != kClassic) {  // 4608: registers an event channel, but only on the event socket
      ASSERT_TRUE(client.Send(kInit));
      EXPECT_EQ(client.ReadFrame().value_or("").rfind(kInitReply, 0), 0u);
    }
    for (const std::string& control : c.controls) {
      const bool refused = !control.empty() && control[0] == '!';
      const std::string answer = sim->query(control.substr(refused));
      EXPECT_EQ(answer.compare(0, refused ? 6 : 2, refused ? "error " : "ok"), 0) << control << " -> " << answer;
    }
    ASSERT_TRUE(c.send.empty() || client.Send(c.send));
    EXPECT_EQ(c.quietMs > 0 ? client.Read(SIZE_MAX, c.quietMs) : "", "");
    EXPECT_EQ(c.end == 0 ? 0 : sim->terminate(c.end), 0);
    for (const char* file : kDaemonFiles) EXPECT_TRUE(c.end == 0 || !fs::exists(sim->path(file))) << file;
    EXPECT_EQ(client.Read(c.expect.size(), 3000), c.expect);
    EXPECT_EQ(client.Read(SIZE_MAX, c.closed ? 3000 : 20), "");
    EXPECT_EQ(client.Closed(), c.closed);
    ASSERT_TRUE(c.end != 0 || (sim->control("fault none") && sim->start()));
    if (c.end != 0) sim.reset();
  }
}

// It never takes over the machine's own root, nor starts without one or with a
// broken profile.
TEST(AgentSimServeTest, RefusesToStartWithoutAGoodRoot) {
  ScopedSystemRoot root;
  ProgramRun::Options noRoot;
  noRoot.env = {"ZENTRIX_ROOT"};
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM, "--root", "/"}).exitStatus, 2);
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM}, noRoot).exitStatus, 2);
  const std::string badProfile = root.writeFile("/bad.json", R"({"fans": [{"speed": 1}]})");
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM, "--check", "--profile", badProfile}).exitStatus, 2);
}

}  // namespace
