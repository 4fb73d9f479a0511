// The simulator process seen from a socket: replies, recording, faults and
// its own life cycle. Reply details are checked in Responder_test.cpp; here
// what only the running server can get wrong. Each test has its own root.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include "tests/support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

const char* const kDaemonFiles[] = {"/usr/sbin/omad", "/var/run/omad.pid", "/dev/omads", "/dev/omadsj",
                                    "/dev/omadaj", "/run/agent-sim.ctl"};
// typical.json has six fans and eight temperature sensors.
const std::string kFans = Sip(R"({"OC":768,"CA":0})");
const std::string kFansReply = Sip(R"({"OC":768,"CA":0,"ST":0,"DA":6})");

TEST(AgentSimServeTest, InitProfileAndRuntimeValues) {
  AgentSimulator sim;
  ASSERT_TRUE(sim.running());
  for (const char* file : kDaemonFiles) EXPECT_TRUE(fs::exists(sim.path(file))) << file;
  TestClient client(sim.path("/dev/omadsj"));

  // The init reply carries the simulator's own descriptor of this connection.
  rapidjson::Document init;
  init.Parse(client.Init(0x1100).c_str());
  const rapidjson::Value* raw = rapidjson::GetValueByPointer(init, "/SIP/CMD/0/DA/RAW");
  ASSERT_TRUE(raw && raw->IsArray() && raw->Size() == 218u);
  unsigned fd = 0;
  for (int i = 68; i >= 65; --i) fd = fd << 8 | (*raw)[i].GetUint();
  char link[64] = {};
  EXPECT_GT(readlink(("/proc/" + std::to_string(sim.pid()) + "/fd/" + std::to_string(fd)).c_str(), link, 63), 0);
  EXPECT_EQ(std::string(link).substr(0, 7), "socket:") << fd;

  EXPECT_EQ(client.Exchange(Sip(R"({"OC":3072,"OE":1544,"CA":0})")),
            Sip(R"({"OC":3072,"OE":1544,"CA":0,"ST":0,"DA":"ORVANA RS2400 G3"})"));
  const std::string fan = Sip(R"({"OC":769,"OI":1,"CA":0})");
  ASSERT_TRUE(sim.control(R"(set 0x0301 0 1 {"ST":0,"DA":"text instead of a number"})"));
  EXPECT_EQ(client.Exchange(fan), Sip(R"({"OC":769,"OI":1,"CA":0,"ST":0,"DA":"text instead of a number"})"));
  ASSERT_TRUE(sim.control(R"(set 769 0 1 {"ST":12})"));
  EXPECT_EQ(client.Exchange(fan), Sip(R"({"OC":769,"OI":1,"CA":0,"ST":12})"));
  ASSERT_TRUE(sim.control("unset 769 0 1"));
  EXPECT_EQ(client.Exchange(fan), Sip(R"({"OC":769,"OI":1,"CA":0,"ST":4})"));
  for (const char* bad : {"set 769 0", "set 769 0 1 [1]", "set x 0 1 {}", "unset", "frobnicate", "", "delay soon",
                          "fault explode", "event [1]"})
    EXPECT_EQ(sim.query(bad).compare(0, 6, "error "), 0) << bad << " -> " << sim.query(bad);
}

TEST(AgentSimServeTest, RecordsEveryRequestTextExactly) {
  AgentSimulator sim({"empty"});
  TestClient client(sim.path("/dev/omadsj"));
  const std::vector<std::string> texts = {kFans, "{ \"spaced\" : true }", "not json",
                                          Sip(R"({"OC":6154,"DA":1,"ST":0,"CA":0})")};
  for (const std::string& text : texts) EXPECT_NE(client.Exchange(text), "<no frame>") << text;
  EXPECT_EQ(sim.requests(), texts);
  EXPECT_NE(sim.query("status").find(" requests=4 clears=1 "), std::string::npos) << sim.query("status");
}

TEST(AgentSimServeTest, SurvivesHostilePeers) {
  AgentSimulator sim;
  TestClient liar(sim.path("/dev/omadsj"));
  ASSERT_TRUE(liar.SendBytes(LengthWord(0xFFFFFFFF) + "{}"));
  EXPECT_TRUE(liar.ClosedByPeer(2000)) << "a 4 GB frame must not be waited for";
  TestClient empty(sim.path("/dev/omadsj"));
  ASSERT_TRUE(empty.SendBytes(LengthWord(0)));
  EXPECT_EQ(empty.ReadFrame().value_or(""), Sip(""));
  TestClient noNul(sim.path("/dev/omadsj"));
  ASSERT_TRUE(noNul.SendBytes(LengthWord(kFans.size()) + kFans));
  EXPECT_EQ(noNul.ReadFrame().value_or(""), kFansReply);
  TestClient(sim.path("/dev/omadsj")).SendBytes(Framed(kFans));  // gone before the reply
  TestClient classic(sim.path("/dev/omads"));
  ASSERT_TRUE(classic.SendBytes("whatever the classic protocol is"));
  EXPECT_EQ(classic.ReadSome(100), "");
  EXPECT_EQ(TestClient(sim.path("/dev/omadsj")).Exchange(kFans), kFansReply);
}

TEST(AgentSimServeTest, ServesClientsSideBySide) {
  AgentSimulator sim;
  // One client's reply is held back for a long time ...
  ASSERT_TRUE(sim.control("fault split 2 1500 oc=768"));
  TestClient slow(sim.path("/dev/omadsj"));
  ASSERT_TRUE(slow.SendBytes(Framed(kFans)));
  const std::string first = slow.ReadSome(2000);
  ASSERT_FALSE(first.empty());
  ASSERT_LT(first.size(), Framed(kFansReply).size());
  // ... while others are answered at once, many at the same time.
  std::vector<std::thread> threads;
  std::vector<int> answered(6, 0);
  for (int t = 0; t < 6; ++t)
    threads.emplace_back([&sim, &answered, t] {
      TestClient client(sim.path("/dev/omadsj"));
      for (int i = 0; i < 20; ++i)
        answered[t] += client.Exchange(Sip(R"({"OC":1024,"CA":0})"), 2000) == Sip(R"({"OC":1024,"CA":0,"ST":0,"DA":8})");
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answered, std::vector<int>(6, 20));
  EXPECT_EQ(slow.ReadSome(0), "") << "the held-back piece came too early";
  EXPECT_EQ(first + slow.ReadBytes(Framed(kFansReply).size() - first.size(), 5000), Framed(kFansReply));
}

TEST(AgentSimServeTest, FaultModesOnTheWire) {
  AgentSimulator sim({"typical", {"--fault", "close count=1"}});
  {
    TestClient client(sim.path("/dev/omadsj"));  // from the command line, once
    ASSERT_TRUE(client.SendBytes(Framed(kFans)));
    EXPECT_TRUE(client.ClosedByPeer(3000));
  }
  EXPECT_EQ(TestClient(sim.path("/dev/omadsj")).Exchange(kFans), kFansReply);

  const std::string payload = kFansReply + '\0';
  const struct {
    const char* fault;
    std::string wire;  // every byte sent in reply to kFans
    int quietMs;       // nothing may arrive this long
  } cases[] = {
      {"delay 400", Framed(kFansReply), 150},
      {"split 3 1", Framed(kFansReply), 0},  // held-back pieces: ServesClientsSideBySide
      {"close", "", 0},
      {"invalid-json", Framed(kFansReply.substr(0, kFansReply.size() / 2)), 0},
      {"version 3 oc=768", Framed(R"({"SIP":{"V":3,"CMD":[{"OC":768,"CA":0,"ST":0,"DA":6}]}})"), 0},
      {"version 3 oc=1024", Framed(kFansReply), 0},  // only the chosen value id
      {"length zero", LengthWord(0) + payload, 0},
      {"length max", LengthWord(0xFFFFFFFF) + payload, 0},
      {"length over", LengthWord(payload.size() + 64) + payload, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    ASSERT_TRUE(sim.control("fault none"));
    ASSERT_TRUE(sim.control(std::string("fault ") + c.fault));
    TestClient client(sim.path("/dev/omadsj"));
    ASSERT_TRUE(client.SendBytes(Framed(kFans)));
    // Without a quiet time the reply may already be there (slow sanitizer
    // builds); reading it here would take it from the check below.
    if (c.quietMs > 0) {
      EXPECT_EQ(client.ReadSome(c.quietMs), "");
    }
    EXPECT_EQ(client.ReadBytes(c.wire.size(), 3000), c.wire);
    EXPECT_EQ(client.ClosedByPeer(c.wire.empty() ? 3000 : 0), c.wire.empty());
  }
}

TEST(AgentSimServeTest, CleansUpOnTerminationAndRestoresTheLaunchersRoot) {
  ScopedEnv previous("ZENTRIX_ROOT", "/previous/root");
  for (int signal : {SIGTERM, SIGINT, 0}) {  // 0: the control command "quit"
    AgentSimulator sim;
    EXPECT_EQ(std::getenv("ZENTRIX_ROOT"), sim.root());
    TestClient client(sim.path("/dev/omadsj"));  // an open client must not keep anything alive
    ASSERT_TRUE(client.Connected());
    EXPECT_TRUE(signal != 0 || sim.control("quit"));
    EXPECT_EQ(sim.terminate(signal ? signal : SIGTERM), 0) << signal;
    for (const char* file : kDaemonFiles) EXPECT_FALSE(fs::exists(sim.path(file))) << file << " after " << signal;
    EXPECT_TRUE(client.ClosedByPeer(1000));
  }
  EXPECT_EQ(std::string(std::getenv("ZENTRIX_ROOT")), "/previous/root");
}

TEST(AgentSimServeTest, RefusesTheRealRootAndABadProfile) {
  ScopedSystemRoot root;
  const std::string badProfile = root.writeFile("/bad.json", R"({"fans": [{"speed": 1}]})");
  ProgramRun::Options noRoot;
  noRoot.env = {"ZENTRIX_ROOT"};
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM, "--root", "/"}).exitStatus, 2);
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM}, noRoot).exitStatus, 2);
  EXPECT_EQ(RunProgram({ZX_AGENT_SIM, "--check", "--profile", badProfile}).exitStatus, 2);
}

}  // namespace
