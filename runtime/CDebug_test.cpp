#include "runtime/CDebug.h"

#include <gtest/gtest.h>

#include <cstdarg>

#include <unistd.h>
#include <utime.h>

#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ScopedSystemRoot.h"

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

// The message after a well-formed header. Short lines only: the regex
// engine recurses per character.
std::string MessageOf(const std::string& line, bool memoryColumn = false,
                      const std::string& label = "Zentrix") {
  std::smatch match;
  return std::regex_match(line, match, std::regex(HeaderPattern(memoryColumn, label) + "(.*)"))
             ? match[1].str()
             : "<bad header>";
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
    for (const char* name : kTraceVariables) {
      if (const char* value = getenv(name)) saved_.emplace_back(name, value);
      unsetenv(name);
    }
    root_.makeDirs(kTraceDir);
  }
  void TearDown() override {
    for (const char* name : kTraceVariables) unsetenv(name);
    for (const auto& [name, value] : saved_) setenv(name.c_str(), value.c_str(), 1);
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

  ScopedSystemRoot root_;
  std::vector<std::pair<std::string, std::string>> saved_;
};

// Each setting with no key in the file, from the file, and with the
// environment set, which wins and is read as decimal.
TEST_F(DebugTest, SettingsFromDefaultsFileAndEnvironment) {
  struct Setting {
    const char* variable;
    const char* environment;
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
  setenv("OV_LOG_FILE_DIR", "/tmp/log-file-dir", 1);
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
    if (*s.variable != '\0') setenv(s.variable, s.environment, 1);
  }
  setenv("OV_LOG_RINGBUF_DIR", "/from/env", 1);
  check(&Setting::fromEnvironment, "/from/env");
}

TEST_F(DebugTest, EmptyConfigDirectoryIgnoresEvenTheEnvironment) {
  root_.writeFile(kConfigDir + "/readme.txt", "[Zentrix]\nFileDebugLevel=2\n[EndOfFile]\n");
  setenv("OV_LOG_DEBUG_LEVEL", "3", 1);
  CDebug debug;
  debug.ReadDebugConfig("Zentrix");
  EXPECT_EQ(0u, debug.GetTraceLevel());

  // Without the directory at all the environment still counts.
  ScopedSystemRoot other;
  CDebug unconfigured;
  unconfigured.ReadDebugConfig("Zentrix");
  EXPECT_EQ(3u, unconfigured.GetTraceLevel());
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
  std::vector<std::string> lines = Lines(LogFile());
  ASSERT_EQ(5u, lines.size());
  // The memory column is on unless the file turns it off.
  EXPECT_EQ("CDebug: two leading 7", MessageOf(lines[0], true));
  EXPECT_EQ("", MessageOf(lines[1], true));
  EXPECT_EQ("ends in newline", MessageOf(lines[2], true));
  EXPECT_EQ("inner", MessageOf(lines[3], true));
  EXPECT_EQ("line", lines[4]);

  // The command line, and a caller's own label once the log file is the target.
  char program[] = "Zentrix", option[] = "-?";
  char* argv[] = {program, option};
  debug.SetMainParams(2, argv);
  debug.SetTarget(1);
  ClientPrint(debug, "Client", "\nfrom %s", "client");
  lines = Lines(LogFile());
  ASSERT_EQ(9u, lines.size());
  EXPECT_EQ("Zentrix Command Line Options:", MessageOf(lines[5], true));
  EXPECT_EQ("argv[1] = \"-?\"", MessageOf(lines[7], true));
  EXPECT_EQ("from client", MessageOf(lines[8], true, "Client"));
}

TEST_F(DebugTest, RingBufferHeaderThenRecordsAndWrapsBehindHeaderWithoutStartPhase) {
  RingConfig(1);
  // The per-application weight beats the general one.
  setenv("OV_LOG_RINGBUF_WEIGHT", "3", 1);
  setenv("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", "1", 1);
  CDebug debug("Zentrix");
  ASSERT_EQ(static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) * 256, debug.GetRingSize());
  debug.ForceMaxDebug(false);
  debug.Print(1, "\nforced off");
  debug.ForceMaxDebug(true);
  debug.Print(2, "\nfirst record");
  debug.Print(3, "\nsuppressed");
  std::string ring = Ring();
  ASSERT_EQ(debug.GetRingSize(), ring.size());
  std::vector<std::string> lines = Lines(ring);
  ASSERT_GT(lines.size(), 80u);
  EXPECT_EQ("Orvana Environment:", MessageOf(lines[0]));
  EXPECT_EQ("OV_LOG_RINGBUF_WEIGHT_ZENTRIX=1", MessageOf(lines[42]));
  EXPECT_EQ("DebugLevel                 : 2", MessageOf(lines[59]));
  EXPECT_EQ("# End of header.", MessageOf(lines[79]));
  // Records start on the second block boundary after the header.
  size_t afterHeader = (ring.find("# End of header.\n") + 17 + 2048) & ~size_t{1023};
  EXPECT_EQ(afterHeader, ring.rfind('\n', ring.find("### Start of initialization. ###")) + 1);
  EXPECT_EQ(0u, Count(ring, "suppressed") + Count(ring, "forced off"));
  EXPECT_EQ(1u, Count(ring, kTrailer));
  EXPECT_EQ(ring.find("first record\n") + 13, ring.find(kTrailer));

  debug.SetApplInitDone();
  EXPECT_EQ(0u, debug.GetApplInitDone());  // a 1 MiB ring never has 1 MiB to spare
  std::string filler(500, 'q');
  for (int i = 0; debug.GetRingWrapCount() < 2 && i < 100000; ++i) {
    debug.Print(2, "\n%s", filler.c_str());
  }
  ASSERT_EQ(2u, debug.GetRingWrapCount());
  ring = Ring();
  EXPECT_EQ(1u, Count(ring, kTrailer));
  EXPECT_EQ(0u, Count(ring, "### Start of initialization. ###"));
  EXPECT_EQ(afterHeader, ring.rfind('\n', ring.find(filler)) + 1);
}

TEST_F(DebugTest, RingBufferThatCannotStartTurnsTracingOff) {
  RingConfig(1);
  root_.makeDirs(kTraceDir + "/log.zentrix_a");
  CDebug debug("Zentrix");
  EXPECT_FALSE(debug.IsEnabled());
  EXPECT_EQ(0u, debug.GetTraceLevel());
  EXPECT_EQ(0u, debug.GetTraceTarget());
  EXPECT_NE(std::string::npos,
            LogFile().find("### InitRingBuffer(): open of " + TracePath("log.zentrix_a") +
                           " failed (errno=21; Is a directory) ###\n"));
}

TEST_F(DebugTest, LongMessageWholeInLargeRingCutInSmallRingAndLogFile) {
  RingConfig(2);
  std::string message(2000, 'x');
  {
    CDebug debug("Zentrix");
    debug.Print(1, "\n%s", message.c_str());
    debug.PrintAlways("\n%s", message.c_str());
    std::string ring = Ring();
    EXPECT_EQ(2u, Count(ring, message + "\n"));
    std::string log = LogFile();
    EXPECT_EQ(std::string::npos, log.find(message.substr(0, 1025)));
    EXPECT_NE(std::string::npos, log.find(message.substr(0, 1024) + "\n"));
  }
  // A message above a tenth of the ring is cut, with a notice.
  TestDebug small;
  small.Init("Zentrix");
  std::string path = TracePath("small_a");
  ASSERT_TRUE(small.InitRingBuffer(path.c_str(), 16 * 1024));
  small.Print(1, "\n%s", message.c_str());
  std::string ring = ScopedSystemRoot::readFile(path);
  EXPECT_NE(std::string::npos,
            ring.find(message.substr(0, 1024) +
                      "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n" + kTrailer));
  EXPECT_EQ(std::string::npos, ring.find(message.substr(0, 1025)));
}

TEST_F(DebugTest, LogFileWrapsToStartThenToEndOfInitialization) {
  AppConfig("MemoryTracesFlag=0");
  setenv("OV_LOG_FILE_MAX_SIZE", "2000", 1);
  // About 150 bytes a record: the 14th passes the maximum, once.
  std::string filler(100, 'f');
  {
    CDebug debug("Zentrix");
    for (int i = 0; i < 15; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());
    std::string log = LogFile();
    EXPECT_EQ(0u, log.find("------ WRAP ----- Cycle=1, CntInitEnd=0, CurrentByteCnt=0 (MaxCnt=2000)\n"));
    // Nothing is truncated: older lines still follow the newest ones.
    EXPECT_EQ(1u, Count(log, "12 " + filler));
  }
  CDebug debug("Zentrix");
  debug.PrintAlways("\nstart-up line");
  debug.SetApplInitDone();
  std::string startPhase = LogFile();
  for (int i = 0; i < 15; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());
  std::string log = LogFile();
  std::string initEnd = std::to_string(startPhase.size());
  EXPECT_EQ(0u, log.find(startPhase + "------ WRAP ----- Cycle=1, CntInitEnd=" + initEnd +
                         ", CurrentByteCnt=" + initEnd + " (MaxCnt=2000)\n"))
      << log;
}

TEST_F(DebugTest, RingWrapKeepsStartPhaseAndExactlyOneTrailer) {
  RingConfig(3, 2);
  CDebug debug("Zentrix");
  // factor (at most 2) * weight * page size * 256
  EXPECT_EQ(2u, debug.GetRingFactor());
  ASSERT_EQ(2 * 2 * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) * 256, debug.GetRingSize());
  debug.Print(1, "\nduring start-up");
  debug.SetApplInitDone();
  EXPECT_EQ(1u, debug.GetApplInitDone());
  std::string filler(900, 'r');
  int written = 0;
  while (debug.GetRingWrapCount() == 0 && written < 100000) {
    debug.Print(2, "\n%06d %s", written++, filler.c_str());
  }
  ASSERT_EQ(1u, debug.GetRingWrapCount());
  debug.Print(2, "\nnewest");
  std::string ring = Ring();
  EXPECT_EQ(1u, Count(ring, kTrailer));
  EXPECT_EQ(ring.find("newest\n") + 7, ring.find(kTrailer));
  EXPECT_EQ('.', ring.back());
  EXPECT_EQ(1u, Count(ring, "Orvana Environment:"));
  EXPECT_EQ(1u, Count(ring, "during start-up\n"));
  // The record that caused the wrap directly follows the start phase.
  const std::string initEnd = "### End of initialization. ###\n";
  ASSERT_EQ(1u, Count(ring, initEnd));
  char tag[32];
  snprintf(tag, sizeof tag, "Zentrix      %06d ", written - 1);
  size_t record = ring.find(tag);
  ASSERT_NE(std::string::npos, record);
  EXPECT_EQ(ring.find(initEnd) + initEnd.size(), ring.rfind('\n', record) + 1);
}

TEST_F(DebugTest, DynamicUpdatePicksUpRaisedLevelAfterInterval) {
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n");
  RingConfig(1, 1, 1);
  setenv("OV_LOG_DEBUG_LEVEL", "2", 1);
  TestDebug debug;
  debug.SetClock([](time_t*) { return g_FakeNow; });
  g_FakeNow = 1000;
  debug.Init("Zentrix");
  ASSERT_EQ(2u, debug.GetTraceLevel());
  debug.Print(2, "\nfirst check");  // the first Print looks at the files

  // A rewritten file, dated later so that it counts as changed.
  auto rewrite = [&](unsigned level, time_t later) {
    RingConfig(1, 1, level);
    struct utimbuf times = {time(nullptr) + later, time(nullptr) + later};
    ASSERT_EQ(0, utime((root_.root() + kConfigDir + "/z.ini").c_str(), &times));
  };
  rewrite(4, 100);
  g_FakeNow = 1009;
  debug.Print(4, "\ntoo early");
  EXPECT_EQ(2u, debug.GetTraceLevel());
  g_FakeNow = 1010;
  debug.Print(4, "\nraised");
  EXPECT_EQ(4u, debug.GetTraceLevel());

  // A clock set back also triggers a check.
  rewrite(1, 200);
  g_FakeNow = 500;
  debug.Print(2, "\nlowered");
  EXPECT_EQ(1u, debug.GetTraceLevel());

  EXPECT_EQ(0u, Count(Ring(), "too early"));
  EXPECT_EQ(1u, Count(Ring(), "raised"));
}

TEST_F(DebugTest, ConcurrentPrintsKeepEveryRecordWhole) {
  RingConfig(2);
  setenv("OV_LOG_FILE_MAX_SIZE", "100000000", 1);
  CDebug debug("Zentrix");
  constexpr int kThreads = 4;
  constexpr int kRecords = 300;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&debug, t] {
      for (int i = 0; i < kRecords; ++i) {
        if (debug.IsEnabled()) debug.Print(2, "\nthread %d ring %04d end", t, i);
        debug.PrintAlways(1, "\nthread %d file %04d end", t, i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  const std::regex whole(HeaderPattern() + "thread [0-3] (ring|file) [0-9]{4} end");
  std::vector<std::string> log = Lines(LogFile());
  EXPECT_EQ(static_cast<size_t>(kThreads * kRecords), log.size());
  for (const std::string& line : log) EXPECT_TRUE(std::regex_match(line, whole)) << line;
  std::string ring = Ring();
  size_t ringRecords = 0;
  for (const std::string& line : Lines(ring)) {
    if (line.find("thread") == std::string::npos) continue;
    EXPECT_TRUE(std::regex_match(line, whole)) << line;
    ++ringRecords;
  }
  EXPECT_EQ(static_cast<size_t>(kThreads * kRecords * 2), ringRecords);
  EXPECT_EQ(1u, Count(ring, kTrailer));
}

TEST_F(DebugTest, OverlongNamesAndDirectoriesAreCut) {
  // Cut at 255 characters, the directory part still lies inside the root.
  std::string longDir = root_.root() + "/" + std::string(300, 'd');
  setenv("OV_LOG_RINGBUF_DIR", longDir.c_str(), 1);
  setenv("OV_LOG_DEBUG_LEVEL", "1", 1);
  setenv("TraceFileLimit", "1", 1);
  setenv("OV_LOG_RINGBUF_WEIGHT", "1", 1);
  AppConfig("");
  std::string longName(400, 'N');
  CDebug debug(longName.c_str());
  EXPECT_EQ(255u, strlen(debug.GetTraceDirectory()));
  EXPECT_EQ(255u, strlen(debug.GetLogFilePath()));
  EXPECT_EQ(255u, strlen(debug.GetRingBufferPath()));
  EXPECT_EQ(0u, std::string(debug.GetLogFilePath()).find(root_.root() + "/ddd"));

  // The application's variable name stays inside its buffer.
  char tight[12] = "ABCDEFGH";
  CDebug::BuildAppVarName(tight, sizeof tight, "very long name");
  EXPECT_STREQ("ABCDEFGH_VE", tight);
}

}  // namespace
