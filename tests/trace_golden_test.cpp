// Whole-program traces, compared with tests/golden/trace-*.txt: the texts and
// levels of the trace are part of what the programs promise. Each scenario
// runs at trace levels 1 to 5; a golden line is the level-5 line with its
// thread and the lowest level that writes it (0: logged always; the header,
// written whenever a ring runs, shows as 1). Time, thread ids (T1, T2 in
// order of appearance), the process id, descriptor numbers, the daemon's
// descriptor in init blocks, addresses and the scratch root are masked.
//
// After a deliberate change, regenerate with
//   ZX_UPDATE_GOLDEN=1 ./system_tests --gtest_filter='TraceGolden*'
// and read the diff of tests/golden/ line by line before committing it.
#include <map>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

using Lines = std::vector<std::string>;
constexpr int kLevels = 5;

// A simulator of an empty server whose trace has no memory column (it changes from run to run).
void WithoutMemoryColumn(const AgentSimulator& sim) {
  sim.writeFile("/etc/velmark/OrvanaSuite/TraceConfig/global_trace.ini", "[Zentrix]\nMemoryTracesFlag=0\n[EndOfFile]\n");
}

// `command` traced at `level` into <root>/L<level>, in an environment of its
// own so that the header's tables are reproducible.
Lines Traced(const AgentSimulator& sim, int level, const Lines& command) {
  Lines env = {"/usr/bin/env", "-i", "ZENTRIX_ROOT=" + sim.root(), "OV_LOG_DEBUG_LEVEL=" + std::to_string(level),
               "TraceFileLimit=1", "OV_LOG_RINGBUF_WEIGHT=1", "OV_LOG_RINGBUF_DIR=" + sim.makeDirs("/L" + std::to_string(level))};
  env.insert(env.end(), command.begin(), command.end());
  return env;
}

std::string File(const AgentSimulator& sim, int level, const char* name) {
  return ScopedSystemRoot::readFile(sim.path("/L" + std::to_string(level) + "/" + name));
}

// The records of a ring (its header when asked for, then the start mark up to
// the newest end mark) or of a log file, masked, grouped by thread.
Lines Masked(const AgentSimulator& sim, int level, const char* name, bool withHeader) {
  static const std::regex record(R"(^\S+ \S+ \[([0-9A-F]{8})\] (.*)$)"),
      number(R"(((?:fd|Fd|FD|FdOld|FdNew|Channel|omadfd)=|socket |(?:FD|PID) +: |hKey = |callback 0x)-?[0-9A-F]+)"),
      pipe(R"((pipe ?\[)\d+,\d+)"), daemonFd(R"(("RAW":\[(?:\d+,){65})\d+)"), initLength(R"((= ?)\d+)"),
      levelDir("<root>/L[1-5]");
  std::istringstream ring(File(sim, level, name));
  std::map<std::string, std::string> threads;
  Lines lines;
  int part = 0;  // the header, the padding after it, the records
  bool init = false;
  for (std::string line, id; std::getline(ring, line);) {
    if (line == "## TRACE-END ##" && part == 2) break;
    if (line == "## TRACE-END ##") part = 1;
    if (line.find("### Start of initialization. ###") != std::string::npos) part = 2;
    std::smatch m;
    if (part == 1 || (part == 0 && !withHeader) || !std::regex_match(line, m, record)) continue;
    // The stop's wait for the event thread may or may not need a round.
    if (line.find("retry and wait for event thread") != std::string::npos) continue;
    if (!threads.count(id = m[1])) threads.emplace(id, "T" + std::to_string(threads.size() + 1));
    line = threads[id] + " " + m[2].str();
    // The daemon's descriptor in its init reply changes the reply's length.
    init = init || line.find("\"OC\":65440") != std::string::npos;
    if (init) line = std::regex_replace(std::regex_replace(line, daemonFd, "$1#"), initLength, "$1#");
    init = init && line.find("SendInitChannelCommand:") == std::string::npos;
    line = std::regex_replace(std::regex_replace(line, number, "$1#"), pipe, "$1#,#");
    for (const auto& [path, name] : {std::pair<std::string, const char*>{ZX_ZENTRIX_BIN, "<Zentrix>"}, {sim.root(), "<root>"}})
      for (size_t at; (at = line.find(path)) != std::string::npos;) line.replace(at, path.size(), name);
    lines.push_back(std::regex_replace(line, levelDir, "<root>/L#"));  // the level's own directory
  }
  for (std::string& line : lines)
    for (const auto& [id, name] : threads)
      for (size_t at; (at = line.find(id)) != std::string::npos;) line.replace(at, id.size(), name);
  std::stable_sort(lines.begin(), lines.end(), [](const auto& a, const auto& b) { return a.substr(0, 3) < b.substr(0, 3); });
  return lines;
}

// The level-5 trace, each line with the lowest level whose run holds it; the
// log file (level 0) numbers its threads on its own, so its lines match without.
Lines Levelled(const AgentSimulator& sim, bool withHeader) {
  std::vector<std::multiset<std::string>> runs(kLevels);
  const auto key = [](int level, const std::string& line) { return level == 0 ? line.substr(2) : line; };
  for (int level = 0; level < kLevels; ++level)
    for (const std::string& line : Masked(sim, level ? level : kLevels, level ? "log.zentrix_a" : "log.zentrix", withHeader || !level))
      runs[level].insert(key(level, line));
  Lines lines = Masked(sim, kLevels, "log.zentrix_a", withHeader);
  for (std::string& line : lines) {
    int level = 0;
    while (level < kLevels && runs[level].count(key(level, line)) == 0) ++level;
    if (level < kLevels) runs[level].erase(runs[level].find(key(level, line)));
    line.insert(2, " " + std::to_string(level));
  }
  return lines;
}

void ExpectGolden(const std::string& name, const Lines& lines) {
  std::string text, path = std::string(ZX_SOURCE_DIR) + "/tests/golden/" + name;
  for (const std::string& line : lines) text += line + "\n";
  if (const char* update = std::getenv("ZX_UPDATE_GOLDEN"); update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    GTEST_SKIP() << "rewrote " << path;
  }
  EXPECT_EQ(ScopedSystemRoot::readFile(path), text);  // gtest shows the lines that differ
}

// A report with the Driver Monitor reset; one reply comes in two pieces.
TEST(TraceGoldenTest, ReportOnAnEmptyServer) {
  AgentSimulator sim({"empty", {}, false});
  WithoutMemoryColumn(sim);
  ProgramRun::Options options;
  options.workDir = sim.root();
  for (int level = 1; level <= kLevels; ++level) {
    ASSERT_TRUE(sim.control("fault split 2 500 oc=57860 count=1"));
    const ProgramRun::Outcome done =
        RunProgram(Traced(sim, level, {ZX_ZENTRIX_BIN, "-clearstatus", "-output", sim.path("/report.html")}), options);
    ASSERT_EQ(done.status(), 0) << done.err;
  }
  ExpectGolden("trace-report.txt", Levelled(sim, true));
}

// Events, frames that carry nothing, a frame cut short that runs on into the
// next one, a daemon restart, and the stop on either signal; one watcher per
// level at once, each printing the same lines.
TEST(TraceGoldenTest, EventSessionOfEachThread) {
  AgentSimulator sim({"empty", {}, false});
  WithoutMemoryColumn(sim);
  std::vector<std::unique_ptr<ProgramRun>> watchers;
  for (int level = 1; level <= kLevels; ++level)
    watchers.push_back(std::make_unique<ProgramRun>(Traced(sim, level, {ZX_EVENT_WATCH_BIN})));
  const auto traced = [&sim](const char* text) {
    int level = 1;
    const auto holds = [&] { return File(sim, level, "log.zentrix_a").find(text) != std::string::npos; };
    return WaitUntil([&] { while (level <= kLevels && holds()) ++level; return level > kLevels; });
  };
  ASSERT_TRUE(sim.waitForEventChannels(kLevels));
  for (const char* command : {R"(event {"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580})", "event-raw-garbage",
                              "event-raw-zero", "event-raw-truncated"})
    ASSERT_TRUE(sim.control(command)) << command;
  ASSERT_TRUE(traced("RetryCnt=1) --> continue"));
  ASSERT_TRUE(sim.control("event") && traced("Event Channel reopened on"));
  ASSERT_TRUE(sim.control("restart") && traced("reregistered on"));
  ASSERT_TRUE(sim.control(R"(event {"SIP":{"V":1,"CMD":[{"OC":1025,"OE":3,"CA":1,"ST":3,"DA":{"RAW":[1,2]}},)"
                          R"({"OC":8961}]}})"));
  // One line per event command; the frames that carried nothing print nothing.
  const std::string printed = "OC=0x0302 OE=0x0000 OI=2 CA=0 ST=0 DA=5580\nOC=0x0401 OE=0x0003 OI=0 CA=1 ST=3 "
                              "DA={\"RAW\":[1,2]}\nOC=0x2301 OE=0x0000 OI=0 CA=0 ST=22 DA=-\n";
  for (size_t i = 0; i < watchers.size(); ++i) {
    ASSERT_TRUE(WaitUntil([&] { return watchers[i]->out().find("OC=0x2301") != std::string::npos; }));
    kill(watchers[i]->pid(), i % 2 == 0 ? SIGTERM : SIGINT);
    const ProgramRun::Outcome done = watchers[i]->wait();
    EXPECT_EQ(done.status(), 0);
    EXPECT_EQ(done.out, printed);
  }
  EXPECT_TRUE(sim.waitForEventChannels(0)) << "a channel was left open";
  ExpectGolden("trace-events.txt", Levelled(sim, false));
}

}  // namespace
