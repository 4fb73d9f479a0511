// The simulator process seen from a socket: replies, recording, faults and
// its own life cycle. Each test runs its own simulator under its own root.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "TestClient.h"
#include "tests/support/AgentSimulator.h"

namespace {

bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

const char* const kDaemonFiles[] = {"/usr/sbin/omad", "/var/run/omad.pid", "/dev/omads", "/dev/omadsj",
                                    "/dev/omadaj", "/run/agent-sim.ctl"};

std::string Request(const std::string& command) { return R"({"SIP":{"V":1,"CMD":[)" + command + "]}}"; }

TEST(AgentSimServeTest, AnswersInitCabinetAndProfileValues) {
  AgentSimulator sim;
  ASSERT_TRUE(sim.running());
  EXPECT_EQ(std::getenv("ZENTRIX_ROOT"), sim.root());
  for (const char* file : kDaemonFiles) EXPECT_TRUE(Exists(sim.path(file))) << file;

  TestClient client(sim.path("/dev/omadsj"));
  ASSERT_TRUE(client.Connected());
  auto init = ParseReply(client.Init(0x1100, "Zentrix"));
  const auto& initCommand = FirstCommand(init);
  ASSERT_TRUE(initCommand.IsObject());
  EXPECT_EQ(initCommand["ST"].GetUint(), 0u);
  const auto& block = initCommand["DA"]["RAW"];
  ASSERT_EQ(block.Size(), 218u);
  EXPECT_EQ(block[0].GetUint(), unsigned('Z'));
  unsigned serverFd = block[65].GetUint() | block[66].GetUint() << 8 | block[67].GetUint() << 16 |
                      block[68].GetUint() << 24;
  EXPECT_GT(serverFd, 2u);  // a real descriptor of the simulator
  EXPECT_LT(serverFd, 65536u);

  EXPECT_EQ(client.Exchange(R"({"SIP":{"V":1,"CMD":[{"OC":57860}]}})"),
            R"({"SIP":{"V":1,"CMD":[{"OC":57860,"ST":0,"DA":0}]}})");
  EXPECT_EQ(client.Exchange(Request(R"({"OC":3072,"OE":1544,"CA":0})")),
            Request(R"({"OC":3072,"OE":1544,"CA":0,"ST":0,"DA":"ORVANA RS2400 G3"})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":768,"CA":0})")), Request(R"({"OC":768,"CA":0,"ST":0,"DA":6})"));
  // The reused record still holds the last reply's members.
  EXPECT_EQ(client.Exchange(Request(R"({"OC":1316,"OI":5,"CA":0,"ST":0,"DA":6})")),
            Request(R"({"OC":1316,"OI":5,"CA":0,"ST":0,"DA":1206})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":1315,"OI":5,"CA":0})")),
            Request(R"({"OC":1315,"OI":5,"CA":0,"ST":0,"DA":{"RAW":[56,4,40,5]}})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":57608})")), Request(R"({"OC":57608,"ST":0,"DA":{"RAW":[10,17,4,23]}})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":4660,"OE":1,"CA":0})")), Request(R"({"OC":4660,"OE":1,"CA":0,"ST":4})"));
  auto log = ParseReply(client.Exchange(Request(R"({"OC":2832,"CA":0})")));
  ASSERT_TRUE(FirstCommand(log)["DA"].IsObject());
  EXPECT_GT(FirstCommand(log)["DA"]["RAW"].Size(), 160u);  // ten records of 17+ bytes
}

TEST(AgentSimServeTest, RecordsEveryRequestTextExactly) {
  AgentSimulator sim(AgentSimulator::Options{"empty", {}, true, 10000});
  TestClient client(sim.path("/dev/omadsj"));
  ASSERT_TRUE(client.Connected());
  const std::vector<std::string> texts = {Request(R"({"OC":768,"CA":0})"), "{ \"spaced\" : true }", "not json",
                                          Request(R"({"OC":6154,"DA":1,"ST":0,"CA":0})")};
  for (const std::string& text : texts) EXPECT_NE(client.Exchange(text), "<no frame>") << text;
  EXPECT_EQ(sim.requests(), texts);
  EXPECT_NE(sim.query("status").find(" clears=1 "), std::string::npos) << sim.query("status");
  sim.clearRequests();
  EXPECT_TRUE(sim.requests().empty());
  client.Exchange(texts[0]);
  ASSERT_TRUE(sim.waitForRequests(1));
  EXPECT_EQ(sim.requests(), std::vector<std::string>{texts[0]});
}

TEST(AgentSimServeTest, StatusResetAndRuntimeValuesChangeLaterReads) {
  AgentSimulator sim(AgentSimulator::Options{"degraded", {}, false, 10000});
  TestClient client(sim.path("/dev/omadsj"));
  const std::string firstNic = Request(R"({"OC":6145,"CA":0})");
  EXPECT_EQ(client.Exchange(firstNic), Request(R"({"OC":6145,"CA":0,"ST":0,"DA":3})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":6154,"DA":1,"ST":0,"CA":0})")),
            Request(R"({"OC":6154,"CA":0,"ST":0,"DA":1})"));
  EXPECT_EQ(client.Exchange(firstNic), Request(R"({"OC":6145,"CA":0,"ST":0,"DA":1})"));

  ASSERT_TRUE(sim.control(R"(set 0x0301 0 1 {"ST":0,"DA":"text instead of a number"})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":769,"OI":1,"CA":0})")),
            Request(R"({"OC":769,"OI":1,"CA":0,"ST":0,"DA":"text instead of a number"})"));
  ASSERT_TRUE(sim.control(R"(set 769 0 1 {"ST":12})"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":769,"OI":1,"CA":0})")), Request(R"({"OC":769,"OI":1,"CA":0,"ST":12})"));
  ASSERT_TRUE(sim.control("unset 769 0 1"));
  EXPECT_EQ(client.Exchange(Request(R"({"OC":769,"OI":1,"CA":0})")), Request(R"({"OC":769,"OI":1,"CA":0,"ST":4})"));

  for (const char* bad : {"set 769 0", "set 769 0 1 [1]", "set x 0 1 {}", "unset", "frobnicate", "", "delay soon",
                          "fault explode", "event [1]"})
    EXPECT_EQ(sim.query(bad).compare(0, 6, "error "), 0) << bad << " -> " << sim.query(bad);
}

TEST(AgentSimServeTest, SurvivesHostilePeers) {
  AgentSimulator sim;
  TestClient liar(sim.path("/dev/omadsj"));
  ASSERT_TRUE(liar.SendBytes(std::string("\xff\xff\xff\xff", 4) + "{}"));
  EXPECT_TRUE(liar.ClosedByPeer(2000)) << "a 4 GB frame must not be waited for";
  TestClient empty(sim.path("/dev/omadsj"));
  ASSERT_TRUE(empty.SendBytes(std::string(4, '\0')));  // length 0: no text at all
  EXPECT_EQ(empty.ReadFrame().value_or(""), R"({"SIP":{"V":1,"CMD":[]}})");
  TestClient noNul(sim.path("/dev/omadsj"));
  ASSERT_TRUE(noNul.SendBytes(std::string("\x22\0\0\0", 4) + Request(R"({"OC":768})")));
  EXPECT_EQ(noNul.ReadFrame().value_or(""), Request(R"({"OC":768,"ST":0,"DA":6})"));
  {
    TestClient quitter(sim.path("/dev/omadsj"));
    ASSERT_TRUE(quitter.Send(Request(R"({"OC":768})")));
  }  // gone before the reply
  TestClient classic(sim.path("/dev/omads"));
  ASSERT_TRUE(classic.SendBytes("whatever the classic protocol is"));
  EXPECT_EQ(classic.ReadSome(100), "");
  EXPECT_TRUE(sim.running());
  EXPECT_EQ(TestClient(sim.path("/dev/omadsj")).Exchange(Request(R"({"OC":768})")),
            Request(R"({"OC":768,"ST":0,"DA":6})"));
}

TEST(AgentSimServeTest, ServesClientsSideBySide) {
  AgentSimulator sim;
  // One client's reply is held back for a long time ...
  ASSERT_TRUE(sim.control("fault split 2 1500 oc=768"));
  TestClient slow(sim.path("/dev/omadsj"));
  ASSERT_TRUE(slow.Send(Request(R"({"OC":768,"CA":0})")));
  std::string firstPiece = slow.ReadSome(2000);
  EXPECT_FALSE(firstPiece.empty());
  // ... while others are answered at once, many at the same time.
  std::vector<std::thread> threads;
  std::vector<int> answered(6, 0);
  for (int t = 0; t < 6; ++t)
    threads.emplace_back([&sim, &answered, t] {
      TestClient client(sim.path("/dev/omadsj"));
      for (int i = 0; i < 20; ++i)
        if (client.Exchange(Request(R"({"OC":1024,"CA":0})"), 2000) == Request(R"({"OC":1024,"CA":0,"ST":0,"DA":8})"))
          ++answered[t];
    });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 6; ++t) EXPECT_EQ(answered[t], 20) << t;
  EXPECT_EQ(slow.ReadSome(0), "") << "the held-back piece came too early";
  std::string rest = slow.ReadBytes(TestClient::LengthOf(firstPiece) + 4 - firstPiece.size(), 5000);
  const std::string reply = Request(R"({"OC":768,"CA":0,"ST":0,"DA":6})");
  EXPECT_EQ(TestClient::LengthOf(firstPiece), reply.size() + 1);
  EXPECT_EQ((firstPiece + rest).substr(4), reply + std::string(1, '\0'));
}

TEST(AgentSimServeTest, FaultModesSpoilRepliesOnTheWire) {
  AgentSimulator sim(AgentSimulator::Options{"typical", {"--fault", "close count=1"}, false, 10000});
  const std::string fans = Request(R"({"OC":768,"CA":0})");
  const std::string fansReply = Request(R"({"OC":768,"CA":0,"ST":0,"DA":6})");
  {
    TestClient client(sim.path("/dev/omadsj"));  // from the command line, once
    ASSERT_TRUE(client.Send(fans));
    EXPECT_TRUE(client.ClosedByPeer(3000));
    EXPECT_EQ(client.ReadSome(0), "");
  }
  TestClient client(sim.path("/dev/omadsj"));
  EXPECT_EQ(client.Exchange(fans), fansReply);

  ASSERT_TRUE(sim.control("delay 400"));
  ASSERT_TRUE(client.Send(fans));
  EXPECT_EQ(client.ReadSome(100), "");
  EXPECT_EQ(client.ReadFrame(3000).value_or(""), fansReply);
  ASSERT_TRUE(sim.control("delay 0"));

  ASSERT_TRUE(sim.control("fault split 3 150"));
  ASSERT_TRUE(client.Send(fans));
  std::string piece = client.ReadSome(2000);
  EXPECT_GT(piece.size(), 0u);
  EXPECT_LT(piece.size(), fansReply.size() + 5);
  std::string all = piece + client.ReadBytes(fansReply.size() + 5 - piece.size(), 3000);
  EXPECT_EQ(all.substr(4, fansReply.size()), fansReply);

  ASSERT_TRUE(sim.control("fault invalid-json"));
  std::string broken = client.Exchange(fans);
  EXPECT_TRUE(ParseReply(broken).HasParseError()) << broken;

  ASSERT_TRUE(sim.control("fault version 2"));
  EXPECT_EQ(client.Exchange(fans), R"({"SIP":{"V":2,"CMD":[{"OC":768,"CA":0,"ST":0,"DA":6}]}})");

  // Only the chosen value id, and only twice.
  ASSERT_TRUE(sim.control("fault version 3 oc=1024 count=2"));
  EXPECT_EQ(client.Exchange(fans), fansReply);
  EXPECT_EQ(ParseReply(client.Exchange(Request(R"({"OC":1024})")))["SIP"]["V"].GetUint(), 3u);
  EXPECT_EQ(ParseReply(client.Exchange(Request(R"({"OC":1024})")))["SIP"]["V"].GetUint(), 3u);
  EXPECT_EQ(ParseReply(client.Exchange(Request(R"({"OC":1024})")))["SIP"]["V"].GetUint(), 1u);

  struct LengthCase {
    const char* command;
    uint32_t word;
  };
  const uint32_t honest = static_cast<uint32_t>(fansReply.size() + 1);
  for (const LengthCase& c : {LengthCase{"fault length zero count=1", 0u},
                              LengthCase{"fault length max count=1", 0xFFFFFFFFu},
                              LengthCase{"fault length over 9 count=1", honest + 9}}) {
    TestClient fresh(sim.path("/dev/omadsj"));
    ASSERT_TRUE(sim.control(c.command));
    ASSERT_TRUE(fresh.Send(fans));
    std::string bytes = fresh.ReadBytes(4 + honest, 3000);
    ASSERT_EQ(bytes.size(), 4u + honest) << c.command;
    EXPECT_EQ(TestClient::LengthOf(bytes), c.word) << c.command;
    EXPECT_EQ(bytes.substr(4, fansReply.size()), fansReply) << "the payload follows the lying length";
  }
  ASSERT_TRUE(sim.control("fault none"));
  EXPECT_NE(sim.query("status").find("fault=none"), std::string::npos);
  EXPECT_EQ(client.Exchange(fans), fansReply);
}

TEST(AgentSimServeTest, CleansUpOnTerminationSignals) {
  for (int signal : {SIGTERM, SIGINT}) {
    AgentSimulator sim;
    TestClient client(sim.path("/dev/omadsj"));  // an open client must not keep anything alive
    ASSERT_TRUE(client.Connected());
    EXPECT_EQ(sim.terminate(signal), 0) << signal;
    for (const char* file : kDaemonFiles) EXPECT_FALSE(Exists(sim.path(file))) << file << " after " << signal;
    EXPECT_TRUE(client.ClosedByPeer(1000));
    EXPECT_FALSE(sim.running());
    EXPECT_FALSE(sim.control("status"));
  }
  AgentSimulator sim;
  EXPECT_TRUE(sim.control("quit"));
  EXPECT_EQ(sim.terminate(SIGTERM), 0);  // already gone by itself, still reaped
  EXPECT_FALSE(Exists(sim.path("/var/run/omad.pid")));
}

TEST(AgentSimServeTest, LauncherRestoresTheRootAndLeavesNoChild) {
  setenv("ZENTRIX_ROOT", "/previous/root", 1);
  std::string root;
  pid_t pid = -1;
  {
    AgentSimulator sim;
    root = sim.root();
    pid = sim.pid();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(std::string(std::getenv("ZENTRIX_ROOT")), root);
  }
  EXPECT_EQ(std::string(std::getenv("ZENTRIX_ROOT")), "/previous/root");
  EXPECT_FALSE(Exists(root));
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1) << "the child was not reaped";
  unsetenv("ZENTRIX_ROOT");

  AgentSimulator killed;
  EXPECT_EQ(killed.terminate(SIGKILL), 128 + SIGKILL);
}

TEST(AgentSimServeTest, RefusesToStartWithoutRootOrWithABadProfile) {
  std::string bin = ZX_AGENT_SIM;
  std::string badProfile = "/tmp/agent-sim-bad-profile.json";
  std::ofstream(badProfile) << R"({"fans": [{"speed": 1}]})";
  EXPECT_EQ(WEXITSTATUS(std::system(("env -u ZENTRIX_ROOT " + bin + " 2>/dev/null").c_str())), 2);
  EXPECT_EQ(WEXITSTATUS(std::system((bin + " --root / 2>/dev/null").c_str())), 2);
  EXPECT_EQ(WEXITSTATUS(std::system((bin + " --check --profile " + badProfile + " 2>/dev/null").c_str())), 2);
  EXPECT_EQ(WEXITSTATUS(std::system((bin + " --fault explode --root /tmp 2>/dev/null").c_str())), 2);
  EXPECT_EQ(WEXITSTATUS(std::system((bin + " --delay 2>/dev/null").c_str())), 2);
  std::remove(badProfile.c_str());

  AgentSimulator::Options options;
  options.profile = "no-such-profile";
  options.timeoutMs = 3000;
  testing::TestPartResultArray failures;
  {
    testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &failures);
    AgentSimulator sim(options);
    EXPECT_FALSE(sim.running());
  }
  ASSERT_EQ(failures.size(), 1);
  EXPECT_NE(std::string(failures.GetTestPartResult(0).message()).find("did not come up"), std::string::npos);
}

}  // namespace
