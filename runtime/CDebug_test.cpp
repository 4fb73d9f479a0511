#include "runtime/CDebug.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace {

const char* const kTraceVariables[] = {"OV_LOG_DYNAMIC_UPDATE", "OV_LOG_DEBUG_LEVEL", "OV_LOG_FILE_DIR",
                                       "OV_LOG_FILE_MAX_SIZE", "OV_LOG_RINGBUF_DIR", "OV_LOG_RINGBUF_WEIGHT",
                                       "OV_LOG_RINGBUF_WEIGHT_ZENTRIX", "OV_LOG_NOHDR_TOSDTERR", "TraceFileLimit"};
const std::string kConfigDir = "/etc/velmark/OrvanaSuite/TraceConfig", kTraceDir = "/var/log/orvmon",
                  kTrailer = "## TRACE-END ##\n";

// Exposes the ring buffer start and the clock of the dynamic update.
class TestDebug : public CDebug {
 public:
  using CDebug::InitRingBuffer;
  void SetClock(time_t (*clock)(time_t*)) { m_Clock = clock; }
};

time_t g_FakeNow = 0;

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Each line's message after a well-formed entry header with the memory
// column ("time [thread] size KB !Zentrix"), else the line.
std::vector<std::string> Messages(const std::string& text) {
  const std::regex header(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[[0-9A-F]{8}\] [ 0-9]{7}[0-9] KB !Zentrix {6}(.*))");
  std::vector<std::string> messages;
  std::istringstream in(text);
  std::smatch match;
  for (std::string line; std::getline(in, line);) {
    messages.push_back(std::regex_match(line, match, header) ? match[1].str() : line);
  }
  return messages;
}

class DebugTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kTraceVariables) env_.unset(name);
    root_.makeDirs(kTraceDir);
  }
  void Config(const std::string& file, const std::string& text) { root_.writeFile(kConfigDir + "/" + file, text); }
  void AppConfig(const std::string& keys) { Config("z.ini", "[Zentrix]\n" + keys + "\n[EndOfFile]\n"); }
  // Tracing into a ring buffer of factor * weight * 256 pages, no memory column.
  void RingConfig(unsigned factor, unsigned weight = 1, unsigned level = 2) {
    AppConfig("FileDebugLevel=" + std::to_string(level) + "\nRingBufferSizeFactor=" + std::to_string(factor) +
              "\nRingBufferSizeWeight=" + std::to_string(weight) + "\nMemoryTracesFlag=0");
  }
  std::string TracePath(const std::string& file) const { return root_.root() + kTraceDir + "/" + file; }
  std::string LogFile() const { return ScopedSystemRoot::readFile(TracePath("log.zentrix")); }
  std::string Ring() const { return ScopedSystemRoot::readFile(TracePath("log.zentrix_a")); }

  ScopedEnv env_;
  ScopedSystemRoot root_;
};

// Each setting with no key in the file, from the file, and with the
// environment set, which wins and is read as decimal.
TEST_F(DebugTest, SettingsFromDefaultsFileAndEnvironment) {
  struct Setting {
    const char *variable, *environment;
    unsigned (CDebug::*get)() const;
    unsigned byDefault, fromFile, fromEnvironment;
  } settings[] = {{"OV_LOG_DEBUG_LEVEL", "0x3", &CDebug::GetTraceLevel, 0, 3, 0},
                  {"", "", &CDebug::GetFileDebugLevel, 0, 3, 3},
                  {"", "", &CDebug::GetTraceFlags, 0, 8, 8},
                  {"TraceFileLimit", "4", &CDebug::GetRingFactor, 0, 1, 4},
                  {"OV_LOG_RINGBUF_WEIGHT", "6", &CDebug::GetRingWeight, 0, 2, 6},
                  {"OV_LOG_NOHDR_TOSDTERR", "7", &CDebug::GetNoHeaderFlag, 1, 0, 7},
                  {"", "", &CDebug::GetMemoryTracesFlag, CDebug::kNotGiven, 0, 0},
                  {"OV_LOG_DYNAMIC_UPDATE", "0x20", &CDebug::GetDynamicUpdateInterval, 0, 32, 0},
                  {"OV_LOG_FILE_MAX_SIZE", "4096", &CDebug::GetLogMaxSize, 51200, 51200, 4096}};
  auto check = [&](unsigned Setting::*expected, const std::string& directory) {
    CDebug debug;
    EXPECT_TRUE(debug.ReadDebugConfig("Zentrix"));
    for (const Setting& s : settings) EXPECT_EQ(s.*expected, (debug.*s.get)()) << &s - settings;
    EXPECT_EQ(directory, debug.GetTraceDirectory());
  };
  env_.set("OV_LOG_FILE_DIR", "/tmp/log-file-dir");  // read, but it never decides the directory
  // A configuration directory without an ini file ignores even the environment.
  Config("readme.txt", "[Zentrix]\nFileDebugLevel=2\n[EndOfFile]\n");
  env_.set("OV_LOG_DEBUG_LEVEL", "3");
  CDebug unconfigured;
  EXPECT_TRUE(unconfigured.ReadDebugConfig("Zentrix"));
  EXPECT_EQ(0u, unconfigured.GetTraceLevel());
  env_.unset("OV_LOG_DEBUG_LEVEL");
  AppConfig("");
  check(&Setting::byDefault, root_.root() + kTraceDir);

  // The first file in name order with ".ini" anywhere in its name and the
  // section counts; z.ini (empty section) comes too late.
  Config("a.ini", "[Other]\nFileDebugLevel=9\n[EndOfFile]\n");
  Config("b.txt", "[Zentrix]\nFileDebugLevel=9\n[EndOfFile]\n");
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=0x20\n[EndOfFile]\n");
  Config("m.ini.bak",
         "[Zentrix]\nFileDebugLevel=0x3\nTraceFlags=010\nRingBufferSizeFactor=1\nRingBufferSizeWeight=2\n"
         "NoHeaderToStderr=0\nRingBufferDirectory=/from/file\nMemoryTracesFlag=0\n[EndOfFile]\n");
  check(&Setting::fromFile, "/from/file");

  for (const Setting& s : settings) {
    if (*s.variable != '\0') env_.set(s.variable, s.environment);
  }
  env_.set("OV_LOG_RINGBUF_DIR", "/from/env");
  check(&Setting::fromEnvironment, "/from/env");
}

// Nothing at start selects the log file as the target, so with tracing on
// but no ring buffer Print writes nowhere, while PrintAlways (and Print once
// the target is set) reaches the log file. It is emptied at start and, past
// its maximum, written again behind the start phase.
TEST_F(DebugTest, WithoutARingBufferOnlyPrintAlwaysReachesTheLogFile) {
  root_.writeFile(kTraceDir + "/log.zentrix", "old run\n");
  AppConfig("FileDebugLevel=1");
  env_.set("OV_LOG_FILE_MAX_SIZE", "3000");
  CDebug debug("Zentrix");
  ASSERT_TRUE(debug.IsEnabled());
  EXPECT_NE(0, access(TracePath("log.zentrix_a").c_str(), F_OK));
  debug.Print(1, "\nnot written");
  debug.PrintAlways("\n\nCDebug: two leading %d", 7);  // leading newlines are absorbed
  debug.PrintAlways("\n");
  debug.PrintAlways(1, "ends in newline\n");
  debug.PrintAlways("\ninner\nline");
  char program[] = "Zentrix", option[] = "-?";
  char* argv[] = {program, option};
  debug.SetMainParams(2, argv);
  debug.SetTarget(1);
  debug.Print(1, "\nto the log file");
  EXPECT_EQ((std::vector<std::string>{"CDebug: two leading 7", "", "ends in newline", "inner", "line",
                                      "Zentrix Command Line Options:", "argv[0] = \"Zentrix\"", "argv[1] = \"-?\"",
                                      "to the log file"}),
            Messages(LogFile()));  // the memory column is on by default

  debug.SetApplInitDone();
  const std::string startPhase = LogFile(), initEnd = std::to_string(startPhase.size()), filler(100, 'f');
  for (int i = 0; i < 20; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());  // about 165 bytes each
  const std::string log = LogFile();
  EXPECT_EQ(0u, log.find(startPhase + "------ WRAP ----- Cycle=1, CntInitEnd=" + initEnd + ", CurrentByteCnt=" +
                         initEnd + " (MaxCnt=3000)\n"))
      << log;
  EXPECT_EQ(1u, Count(log, "12 " + filler)) << "nothing is truncated: older lines follow the newest";
}

// factor (at most 2) * weight * page size * 256 bytes. A wrap rewrites the
// header and continues behind the start phase if one was kept, else on the
// second block boundary after the header. A second run on the same trace
// directory leaves both files to the first.
TEST_F(DebugTest, RingBufferHeaderRecordsAndWrap) {
  const uint64_t ringUnit = static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) * 256;
  env_.set("OV_LOG_RINGBUF_WEIGHT", "3");  // the per-application weight beats it
  struct { unsigned factor, weight; uint64_t size; bool keepsStart; } cases[] = {
      {1, 1, ringUnit, false},  // 1 MiB never has 1 MiB to spare for the start phase
      {3, 2, 4 * ringUnit, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.factor);
    RingConfig(c.factor);
    env_.set("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", std::to_string(c.weight));
    CDebug debug("Zentrix");
    debug.Print(2, "\nfirst record");
    debug.PrintAlways("\nin both");
    EXPECT_FALSE(CDebug("Zentrix").IsEnabled());
    std::string ring = Ring();
    ASSERT_EQ(c.size, ring.size());
    // The header keeps its end mark; the other one follows the newest record.
    auto endMarks = [&](const std::string& newest) {
      EXPECT_EQ(2u, Count(ring, kTrailer));
      EXPECT_EQ(ring.find("# End of header.\n") + 17, ring.find(kTrailer));
      EXPECT_EQ(ring.find(newest) + newest.size(), ring.rfind(kTrailer));
    };
    size_t afterHeader = (ring.find("# End of header.\n") + 17 + 2048) & ~size_t{1023};
    EXPECT_EQ(afterHeader, ring.rfind('\n', ring.find("### Start of initialization. ###")) + 1);
    endMarks("in both\n");

    debug.SetApplInitDone();
    EXPECT_EQ(c.keepsStart, debug.GetApplInitDone() == 1);
    std::string filler(900, 'r');
    int written = 0;
    while (debug.GetRingWrapCount() == 0 && written < 100000) debug.Print(2, "\n%06d %s", written++, filler.c_str());
    ASSERT_EQ(1u, debug.GetRingWrapCount());
    debug.Print(2, "\nnewest");
    ring = Ring();
    endMarks("newest\n");
    EXPECT_EQ('.', ring.back());
    EXPECT_EQ(1u, Count(ring, "Orvana Environment:"));
    EXPECT_EQ(c.keepsStart ? 1u : 0u, Count(ring, "first record\n"));
    // The record that caused the wrap comes first after the header or start phase.
    const std::string initEnd = "### End of initialization. ###\n";
    char tag[32];
    snprintf(tag, sizeof tag, "Zentrix      %06d ", written - 1);
    EXPECT_EQ(c.keepsStart ? ring.find(initEnd) + initEnd.size() : afterHeader, ring.rfind('\n', ring.find(tag)) + 1);
  }
}

// A ring buffer that cannot be opened is reported in the log file. A message
// over 1024 characters is written whole only into a ring of at least ten
// times its length; the log file always cuts it.
TEST_F(DebugTest, RingBufferStartFailsOnADirectoryAndTakesLongMessagesWholeIfSmallEnough) {
  AppConfig("MemoryTracesFlag=0");
  TestDebug debug;
  debug.Init("Zentrix");
  const std::string path = TracePath("small_a"), whole(2048, 'w'), cut(2049, 'c');
  ASSERT_FALSE(debug.InitRingBuffer(root_.path(kTraceDir).c_str(), 20480));
  EXPECT_EQ(1u, Count(LogFile(), "### InitRingBuffer(): open of " + root_.path(kTraceDir) +
                                     " failed (errno=21; Is a directory) ###\n"));
  ASSERT_TRUE(debug.InitRingBuffer(path.c_str(), 20480));
  debug.PrintAlways("\n%s", whole.c_str());
  debug.PrintAlways("\n%s", cut.c_str());
  const std::string ring = ScopedSystemRoot::readFile(path);
  EXPECT_EQ(1u, Count(ring, whole + "\n"));
  EXPECT_EQ(1u, Count(ring, cut.substr(0, 1024) + "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n" + kTrailer));
  EXPECT_EQ(1u, Count(LogFile(), whole.substr(0, 1024) + "\n"));
  EXPECT_EQ(0u, Count(LogFile(), whole.substr(0, 1025)));
}

TEST_F(DebugTest, DynamicUpdateRereadsAChangedLevelAfterTheInterval) {
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n");
  RingConfig(1, 1, 1);
  env_.set("OV_LOG_DEBUG_LEVEL", "2");
  TestDebug debug;
  debug.SetClock([](time_t*) { return g_FakeNow; });
  g_FakeNow = 1000;
  debug.Init("Zentrix");
  debug.Print(2, "\nfirst check");  // the first Print looks at the files
  // Each step rewrites the file, dated later so that it counts as changed.
  // A clock set back also triggers a check.
  struct { unsigned level; time_t now; unsigned expected; } steps[] = {{4, 1009, 2}, {4, 1010, 4}, {1, 500, 1}};
  time_t later = time(nullptr);
  for (const auto& step : steps) {
    RingConfig(1, 1, step.level);
    later += 100;
    struct utimbuf times = {later, later};
    ASSERT_EQ(0, utime((root_.root() + kConfigDir + "/z.ini").c_str(), &times));
    g_FakeNow = step.now;
    debug.Print(4, "\ncheck");
    EXPECT_EQ(step.expected, debug.GetTraceLevel()) << step.now;
  }
}

}  // namespace
