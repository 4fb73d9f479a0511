#include "runtime/CDebug.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestSupport.h"

namespace {

const char* const kTraceVariables[] = {
    "OV_LOG_DYNAMIC_UPDATE", "OV_LOG_DEBUG_LEVEL",   "OV_LOG_FILE_DIR",
    "OV_LOG_FILE_MAX_SIZE",  "OV_LOG_RINGBUF_DIR",   "OV_LOG_RINGBUF_WEIGHT",
    "OV_LOG_RINGBUF_WEIGHT_ZENTRIX", "OV_LOG_NOHDR_TOSDTERR", "TraceFileLimit"};
const std::string kConfigDir = "/etc/velmark/OrvanaSuite/TraceConfig";
const std::string kTraceDir = "/var/log/orvmon";
const std::string kTrailer = "## TRACE-END ##\n";

// Exposes the ring buffer start and the clock of the dynamic update.
class TestDebug : public CDebug {
 public:
  using CDebug::InitRingBuffer;
  void SetClock(time_t (*clock)(time_t*)) { m_Clock = clock; }
};

time_t g_FakeNow = 0;

// An entry header, "time [thread] label" or, with the memory column,
// "time [thread] size KB !label".
std::string HeaderPattern(bool memoryColumn = false, const std::string& label = "Zentrix") {
  return R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[[0-9A-F]{8}\] )" +
         std::string(memoryColumn ? "[ 0-9]{7}[0-9] KB !" : "") + label +
         std::string(13 - label.size(), ' ');
}

// The message after a well-formed header, else the whole line. Short lines
// only: the regex engine recurses per character.
std::string MessageOf(const std::string& line, bool memoryColumn = false,
                      const std::string& label = "Zentrix") {
  std::smatch match;
  return std::regex_match(line, match, std::regex(HeaderPattern(memoryColumn, label) + "(.*)"))
             ? match[1].str()
             : line;  // a continuation line, or a broken header
}

void ClientPrint(CDebug& debug, const char* client, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  debug.ClientPrintV(fmt, args, client);
  va_end(args);
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
}

class DebugTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kTraceVariables) env_.unset(name);
    root_.makeDirs(kTraceDir);
  }

  void Config(const std::string& file, const std::string& text) {
    root_.writeFile(kConfigDir + "/" + file, text);
  }
  // The "Zentrix" section, in z.ini.
  void AppConfig(const std::string& keys) {
    Config("z.ini", "[Zentrix]\n" + keys + "\n[EndOfFile]\n");
  }
  // Tracing into a ring buffer of factor * weight * 256 pages, no memory column.
  void RingConfig(unsigned factor, unsigned weight = 1, unsigned level = 2) {
    AppConfig("FileDebugLevel=" + std::to_string(level) + "\nRingBufferSizeFactor=" +
              std::to_string(factor) + "\nRingBufferSizeWeight=" + std::to_string(weight) +
              "\nMemoryTracesFlag=0");
  }
  std::string TracePath(const std::string& file) const {
    return root_.root() + kTraceDir + "/" + file;
  }
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
  } settings[] = {
      {"OV_LOG_DEBUG_LEVEL", "0x3", &CDebug::GetTraceLevel, 0, 3, 0},
      {"", "", &CDebug::GetFileDebugLevel, 0, 3, 3},
      {"", "", &CDebug::GetTraceFlags, 0, 8, 8},
      {"TraceFileLimit", "4", &CDebug::GetRingFactor, 0, 1, 4},
      {"OV_LOG_RINGBUF_WEIGHT", "6", &CDebug::GetRingWeight, 0, 2, 6},
      {"OV_LOG_NOHDR_TOSDTERR", "7", &CDebug::GetNoHeaderFlag, 1, 0, 7},
      {"", "", &CDebug::GetMemoryTracesFlag, CDebug::kNotGiven, 0, 0},
      {"OV_LOG_DYNAMIC_UPDATE", "0x20", &CDebug::GetDynamicUpdateInterval, 0, 32, 0},
      {"OV_LOG_FILE_MAX_SIZE", "4096", &CDebug::GetLogMaxSize, 51200, 51200, 4096},
  };
  auto check = [&](unsigned Setting::*expected, const std::string& directory) {
    CDebug debug;
    EXPECT_TRUE(debug.ReadDebugConfig("Zentrix"));
    for (const Setting& s : settings) EXPECT_EQ(s.*expected, (debug.*s.get)()) << &s - settings;
    EXPECT_EQ(directory, debug.GetTraceDirectory());
  };
  // Read, but it never decides the directory.
  env_.set("OV_LOG_FILE_DIR", "/tmp/log-file-dir");
  AppConfig("");
  check(&Setting::byDefault, root_.root() + kTraceDir);

  // The first file in name order with ".ini" anywhere in its name and the
  // section counts; z.ini (empty section) comes too late.
  Config("a.ini", "[Other]\nFileDebugLevel=9\n[EndOfFile]\n");
  Config("b.txt", "[Zentrix]\nFileDebugLevel=9\n[EndOfFile]\n");
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=0x20\n[EndOfFile]\n");
  Config("m.ini.bak",
         "[Zentrix]\nFileDebugLevel=0x3\nTraceFlags=010\nRingBufferSizeFactor=1\n"
         "RingBufferSizeWeight=2\nNoHeaderToStderr=0\nRingBufferDirectory=/from/file\n"
         "MemoryTracesFlag=0\n[EndOfFile]\n");
  check(&Setting::fromFile, "/from/file");

  for (const Setting& s : settings) {
    if (*s.variable != '\0') env_.set(s.variable, s.environment);
  }
  env_.set("OV_LOG_RINGBUF_DIR", "/from/env");
  check(&Setting::fromEnvironment, "/from/env");
}

TEST_F(DebugTest, EmptyConfigDirectoryIgnoresEvenTheEnvironment) {
  env_.set("OV_LOG_DEBUG_LEVEL", "3");
  CDebug unconfigured;  // without the directory at all the environment counts
  unconfigured.ReadDebugConfig("Zentrix");
  EXPECT_EQ(3u, unconfigured.GetTraceLevel());
  root_.writeFile(kConfigDir + "/readme.txt", "[Zentrix]\nFileDebugLevel=2\n[EndOfFile]\n");
  CDebug debug;
  debug.ReadDebugConfig("Zentrix");
  EXPECT_EQ(0u, debug.GetTraceLevel());
}

TEST_F(DebugTest, LogFileIsRecreatedAndTakesPrintAlwaysWhileTracingIsOff) {
  root_.writeFile(kTraceDir + "/log.zentrix", "old run\n");
  AppConfig("FileDebugLevel=0");
  CDebug debug("Zentrix");
  EXPECT_FALSE(debug.IsEnabled());
  EXPECT_EQ("", LogFile());
  EXPECT_NE(0, access(TracePath("log.zentrix_a").c_str(), F_OK));
  debug.Print(0, "\nnot written");
  // Leading newlines are absorbed; every record ends in exactly one.
  debug.PrintAlways("\n\nCDebug: two leading %d", 7);
  debug.PrintAlways("\n");
  debug.PrintAlways(1, "ends in newline\n");
  debug.PrintAlways("\ninner\nline");
  // The command line, and a caller's own label once the log file is the target.
  char program[] = "Zentrix", option[] = "-?";
  char* argv[] = {program, option};
  debug.SetMainParams(2, argv);
  debug.SetTarget(1);
  ClientPrint(debug, "Client", "\nfrom %s", "client");
  std::vector<std::string> lines = Lines(LogFile()), messages;
  ASSERT_EQ(9u, lines.size());
  // The memory column is on unless the file turns it off.
  for (size_t i = 0; i < 8; ++i) messages.push_back(MessageOf(lines[i], true));
  EXPECT_EQ((std::vector<std::string>{"CDebug: two leading 7", "", "ends in newline", "inner",
                                      "line", "Zentrix Command Line Options:",
                                      "argv[0] = \"Zentrix\"", "argv[1] = \"-?\""}),
            messages);
  EXPECT_EQ("from client", MessageOf(lines[8], true, "Client"));
}

// factor (at most 2) * weight * page size * 256 bytes. A wrap rewrites the
// header and continues behind the start phase if one was kept, else on the
// second block boundary after the header.
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
    const std::string weight = std::to_string(c.weight);
    env_.set("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", weight);
    CDebug debug("Zentrix");
    ASSERT_EQ(c.size, debug.GetRingSize());
    debug.ForceMaxDebug(false);
    debug.Print(1, "\nforced off");
    debug.ForceMaxDebug(true);
    debug.Print(2, "\nfirst record");
    debug.Print(3, "\nsuppressed");
    std::string ring = Ring();
    ASSERT_EQ(c.size, ring.size());
    // The header keeps its end mark; the other one follows the newest record.
    auto endMarks = [&](const std::string& newest) {
      EXPECT_EQ(2u, Count(ring, kTrailer));
      EXPECT_EQ(ring.find("# End of header.\n") + 17, ring.find(kTrailer));
      EXPECT_EQ(ring.find(newest) + newest.size(), ring.rfind(kTrailer));
    };
    std::vector<std::string> lines = Lines(ring);
    EXPECT_EQ("Orvana Environment:", MessageOf(lines[0]));
    EXPECT_EQ("OV_LOG_RINGBUF_WEIGHT_ZENTRIX=" + weight, MessageOf(lines[42]));
    EXPECT_EQ("DebugLevel                 : 2", MessageOf(lines[59]));
    EXPECT_EQ("# End of header.", MessageOf(lines[79]));
    size_t afterHeader = (ring.find("# End of header.\n") + 17 + 2048) & ~size_t{1023};
    EXPECT_EQ(afterHeader, ring.rfind('\n', ring.find("### Start of initialization. ###")) + 1);
    EXPECT_EQ(0u, Count(ring, "suppressed") + Count(ring, "forced off"));
    endMarks("first record\n");

    debug.SetApplInitDone();
    EXPECT_EQ(c.keepsStart, debug.GetApplInitDone() == 1);
    std::string filler(900, 'r');
    int written = 0;
    while (debug.GetRingWrapCount() == 0 && written < 100000) {
      debug.Print(2, "\n%06d %s", written++, filler.c_str());
    }
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
    EXPECT_EQ(c.keepsStart ? ring.find(initEnd) + initEnd.size() : afterHeader,
              ring.rfind('\n', ring.find(tag)) + 1);
  }
}

TEST_F(DebugTest, RingBufferThatCannotStartTurnsTracingOff) {
  RingConfig(1);
  {
    // A second run on the same directory leaves the first one's files alone.
    CDebug first("Zentrix");
    first.PrintAlways("\nfirst run");
    CDebug second("Zentrix");
    EXPECT_FALSE(second.IsEnabled());
    first.PrintAlways("\nfirst run again");
    EXPECT_EQ(2u, Count(LogFile(), "first run"));
    EXPECT_EQ(2u, Count(Ring(), "first run"));
  }
  ASSERT_EQ(0, unlink(TracePath("log.zentrix_a").c_str()));
  root_.makeDirs(kTraceDir + "/log.zentrix_a");
  CDebug debug("Zentrix");
  EXPECT_FALSE(debug.IsEnabled());
  EXPECT_EQ(0u, debug.GetTraceLevel() + debug.GetTraceTarget());
  EXPECT_NE(std::string::npos,
            LogFile().find("### InitRingBuffer(): open of " + TracePath("log.zentrix_a") +
                           " failed (errno=21; Is a directory) ###\n"));
}

TEST_F(DebugTest, LongMessageWholeInLargeRingCutInSmallRingAndLogFile) {
  RingConfig(2);
  const std::string message(2000, 'x'), cut = message.substr(0, 1024) + "\n";
  {
    CDebug debug("Zentrix");
    debug.Print(1, "\n%s", message.c_str());
    debug.PrintAlways("\n%s", message.c_str());
    EXPECT_EQ(2u, Count(Ring(), message + "\n"));
    EXPECT_EQ(1u, Count(LogFile(), cut));
    EXPECT_EQ(0u, Count(LogFile(), message.substr(0, 1025)));
  }
  // A message above a tenth of the ring is cut, with a notice.
  TestDebug small;
  small.Init("Zentrix");
  std::string path = TracePath("small_a");
  ASSERT_TRUE(small.InitRingBuffer(path.c_str(), 16 * 1024));
  small.Print(1, "\n%s", message.c_str());
  std::string ring = ScopedSystemRoot::readFile(path);
  EXPECT_EQ(1u, Count(ring, cut + "## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n" + kTrailer));
  EXPECT_EQ(0u, Count(ring, message.substr(0, 1025)));
}

TEST_F(DebugTest, LogFileWrapsBackToTheEndOfTheStartPhase) {
  AppConfig("MemoryTracesFlag=0");
  env_.set("OV_LOG_FILE_MAX_SIZE", "2000");
  CDebug debug("Zentrix");
  debug.PrintAlways("\nstart-up line");
  debug.SetApplInitDone();
  const std::string startPhase = LogFile(), initEnd = std::to_string(startPhase.size());
  // About 150 bytes a record: fifteen pass the maximum once.
  std::string filler(100, 'f');
  for (int i = 0; i < 15; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());
  std::string log = LogFile();
  EXPECT_EQ(0u, log.find(startPhase + "------ WRAP ----- Cycle=1, CntInitEnd=" + initEnd +
                         ", CurrentByteCnt=" + initEnd + " (MaxCnt=2000)\n"))
      << log;
  // Nothing is truncated: older lines still follow the newest ones.
  EXPECT_EQ(1u, Count(log, "12 " + filler));
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
  struct { unsigned level; time_t now; unsigned expected; } steps[] = {
      {4, 1009, 2}, {4, 1010, 4}, {1, 500, 1}};
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

TEST_F(DebugTest, ConcurrentPrintsKeepEveryRecordWhole) {
  RingConfig(2);
  env_.set("OV_LOG_FILE_MAX_SIZE", "100000000");
  CDebug debug("Zentrix");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&debug, t] {
      for (int i = 0; i < 300; ++i) {
        if (debug.IsEnabled()) debug.Print(2, "\nthread %d ring %04d end", t, i);
        debug.PrintAlways(1, "\nthread %d file %04d end", t, i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<std::string> records = Lines(LogFile());
  EXPECT_EQ(1200u, records.size());
  for (const std::string& line : Lines(Ring())) {
    if (line.find("thread") != std::string::npos) records.push_back(line);
  }
  EXPECT_EQ(1200u * 3, records.size());  // PrintAlways goes to both
  const std::regex whole(HeaderPattern() + "thread [0-3] (ring|file) [0-9]{4} end");
  for (const std::string& line : records) EXPECT_TRUE(std::regex_match(line, whole)) << line;
  EXPECT_EQ(2u, Count(Ring(), kTrailer));
}

// Cut at 255 characters, the directory part still inside the root.
TEST_F(DebugTest, OverlongNamesAndDirectoriesAreCut) {
  std::string longDir = root_.root() + "/" + std::string(300, 'd');
  env_.set("OV_LOG_RINGBUF_DIR", longDir);
  env_.set("OV_LOG_DEBUG_LEVEL", "1");
  env_.set("TraceFileLimit", "1");
  env_.set("OV_LOG_RINGBUF_WEIGHT", "1");
  CDebug debug(std::string(400, 'N').c_str());
  for (const char* path : {debug.GetTraceDirectory(), debug.GetLogFilePath(), debug.GetRingBufferPath()}) {
    EXPECT_EQ(255u, strlen(path));
  }
  EXPECT_EQ(0u, std::string(debug.GetLogFilePath()).find(root_.root() + "/ddd"));
}

}  // namespace
