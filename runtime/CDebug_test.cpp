#include "runtime/CDebug.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ScopedSystemRoot.h"

namespace {

const char* const kTraceVariables[] = {
    "OV_LOG_DYNAMIC_UPDATE", "OV_LOG_DEBUG_LEVEL",    "OV_LOG_FILE_DIR",
    "OV_LOG_FILE_MAX_SIZE",  "OV_LOG_RINGBUF_DIR",    "OV_LOG_RINGBUF_WEIGHT",
    "OV_LOG_RINGBUF_WEIGHT_ZENTRIX", "OV_LOG_NOHDR_TOSDTERR", "TraceFileLimit",
    "OV_HOSTNAME"};

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
time_t FakeClock(time_t* out) {
  if (out != nullptr) *out = g_FakeNow;
  return g_FakeNow;
}

void ClientPrint(CDebug& debug, const char* client, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  debug.ClientPrintV(fmt, args, client);
  va_end(args);
}

// Checks the entry header of one line ("time [thread] label", or with the
// memory column "time [thread] size KB !label") and returns the message after
// it; "<bad header>" when the shape is wrong.
std::string MessageOf(const std::string& line, bool memoryColumn, const std::string& label) {
  const std::string shape = "0000-00-00 00:00:00.000 [HHHHHHHH] ";
  const std::string bad = "<bad header>";
  if (line.size() < shape.size()) return bad;
  for (size_t i = 0; i < shape.size(); ++i) {
    char c = line[i];
    bool ok = shape[i] == '0'   ? isdigit(static_cast<unsigned char>(c)) != 0
              : shape[i] == 'H' ? isdigit(static_cast<unsigned char>(c)) || (c >= 'A' && c <= 'F')
                                : c == shape[i];
    if (!ok) return bad;
  }
  size_t at = shape.size();
  if (memoryColumn) {
    std::string size = line.substr(at, 8);
    size_t digits = size.find_first_not_of(' ');
    if (size.size() != 8 || digits == std::string::npos ||
        size.find_first_not_of("0123456789", digits) != std::string::npos ||
        line.compare(at + 8, 5, " KB !") != 0) {
      return bad;
    }
    at += 13;
  }
  std::string padded = label + std::string(label.size() < 13 ? 13 - label.size() : 0, ' ');
  if (line.compare(at, padded.size(), padded) != 0) return bad;
  return line.substr(at + padded.size());
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
      const char* value = getenv(name);
      saved_.emplace_back(name, value != nullptr ? std::string(value) : std::string("\x01"));
      unsetenv(name);
    }
    root_.makeDirs(kTraceDir);
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value == "\x01") unsetenv(name.c_str());
      else setenv(name.c_str(), value.c_str(), 1);
    }
  }

  void Config(const std::string& file, const std::string& text) {
    root_.writeFile(kConfigDir + "/" + file, text);
  }
  // An application section for "Zentrix" in z.ini.
  void AppConfig(const std::string& keys) {
    Config("z.ini", "[Zentrix]\n" + keys + "\n[EndOfFile]\n");
  }
  std::string TracePath(const std::string& file) const {
    return root_.root() + kTraceDir + "/" + file;
  }
  std::string LogFile() const { return ScopedSystemRoot::readFile(TracePath("log.zentrix")); }
  std::string Ring() const { return ScopedSystemRoot::readFile(TracePath("log.zentrix_a")); }

  ScopedSystemRoot root_;
  std::vector<std::pair<std::string, std::string>> saved_;
};

TEST_F(DebugTest, ApplicationSectionFromFirstFileThatHasIt) {
  Config("0.ini.bak", "[zentrix]\nFileDebugLevel=0x7\nTraceFlags=010\n[EndOfFile]\n");
  Config("a.ini", "[Zentrix]\nFileDebugLevel=3\nRingBufferSizeWeight=5\n[EndOfFile]\n");
  Config("notes.txt", "[Zentrix]\nFileDebugLevel=9\n[EndOfFile]\n");
  CDebug debug;
  EXPECT_TRUE(debug.ReadDebugConfig("Zentrix"));
  EXPECT_EQ(7u, debug.GetTraceLevel());
  EXPECT_EQ(7u, debug.GetSavedTraceLevel());
  EXPECT_EQ(7u, debug.GetFileDebugLevel());
  EXPECT_EQ(8u, debug.GetTraceFlags());
  // a.ini is never opened: its weight does not count.
  EXPECT_EQ(0u, debug.GetRingWeight());
  EXPECT_EQ(1u, debug.GetNoHeaderFlag());
  EXPECT_EQ(CDebug::kNotGiven, debug.GetMemoryTracesFlag());
  EXPECT_EQ(51200u, debug.GetLogMaxSize());
  EXPECT_EQ(root_.root() + kTraceDir, debug.GetTraceDirectory());
}

TEST_F(DebugTest, EnvironmentWinsAndIsReadAsDecimal) {
  AppConfig(
      "FileDebugLevel=0x3\nRingBufferSizeFactor=1\nRingBufferSizeWeight=2\n"
      "NoHeaderToStderr=0\nRingBufferDirectory=/from/file\nMemoryTracesFlag=0");
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=0x20\n[EndOfFile]\n");
  {
    CDebug debug;
    debug.ReadDebugConfig("Zentrix");
    EXPECT_EQ(3u, debug.GetTraceLevel());
    EXPECT_EQ(1u, debug.GetRingFactor());
    EXPECT_EQ(2u, debug.GetRingWeight());
    EXPECT_EQ(0u, debug.GetNoHeaderFlag());
    EXPECT_EQ(0u, debug.GetMemoryTracesFlag());
    EXPECT_EQ(32u, debug.GetDynamicUpdateInterval());
    EXPECT_STREQ("/from/file", debug.GetTraceDirectory());
  }
  setenv("OV_LOG_DEBUG_LEVEL", "0x3", 1);
  setenv("TraceFileLimit", "4", 1);
  setenv("OV_LOG_RINGBUF_WEIGHT", "6", 1);
  setenv("OV_LOG_NOHDR_TOSDTERR", "7", 1);
  setenv("OV_LOG_DYNAMIC_UPDATE", "0x20", 1);
  setenv("OV_LOG_FILE_MAX_SIZE", "4096", 1);
  {
    CDebug debug;
    debug.ReadDebugConfig("Zentrix");
    EXPECT_EQ(0u, debug.GetTraceLevel());
    EXPECT_EQ(3u, debug.GetFileDebugLevel());
    EXPECT_EQ(4u, debug.GetRingFactor());
    EXPECT_EQ(6u, debug.GetRingWeight());
    EXPECT_EQ(7u, debug.GetNoHeaderFlag());
    EXPECT_EQ(0u, debug.GetDynamicUpdateInterval());
    EXPECT_EQ(4096u, debug.GetLogMaxSize());
  }
}

TEST_F(DebugTest, TraceDirectoryFollowsRingBufferSettingOnly) {
  AppConfig("FileDebugLevel=1");
  setenv("OV_LOG_FILE_DIR", "/tmp/log-file-dir", 1);
  {
    CDebug debug;
    debug.ReadDebugConfig("Zentrix");
    EXPECT_EQ(root_.root() + kTraceDir, debug.GetTraceDirectory());
  }
  AppConfig("FileDebugLevel=1\nRingBufferDirectory=/from/file");
  {
    CDebug debug;
    debug.ReadDebugConfig("Zentrix");
    EXPECT_STREQ("/from/file", debug.GetTraceDirectory());
  }
  std::string chosen = root_.makeDirs("/chosen");
  setenv("OV_LOG_RINGBUF_DIR", chosen.c_str(), 1);
  CDebug debug("Zentrix");
  EXPECT_STREQ(chosen.c_str(), debug.GetTraceDirectory());
  EXPECT_EQ(chosen + "/log.zentrix", debug.GetLogFilePath());
  EXPECT_EQ(0, access((chosen + "/log.zentrix").c_str(), F_OK));
}

TEST_F(DebugTest, EmptyConfigDirectoryIgnoresEvenTheEnvironment) {
  root_.writeFile(kConfigDir + "/readme.txt", "[Zentrix]\nFileDebugLevel=2\n[EndOfFile]\n");
  setenv("OV_LOG_DEBUG_LEVEL", "3", 1);
  setenv("OV_LOG_RINGBUF_DIR", "/elsewhere", 1);
  CDebug debug;
  debug.ReadDebugConfig("Zentrix");
  EXPECT_EQ(0u, debug.GetTraceLevel());
  EXPECT_STREQ("", debug.GetTraceDirectory());

  // Without the directory at all the environment still counts.
  ScopedSystemRoot other;
  CDebug unconfigured;
  unconfigured.ReadDebugConfig("Zentrix");
  EXPECT_EQ(3u, unconfigured.GetTraceLevel());
  EXPECT_STREQ("/elsewhere", unconfigured.GetTraceDirectory());
}

TEST_F(DebugTest, TracingOffStillCreatesEmptyLogFile) {
  root_.writeFile(kTraceDir + "/log.zentrix", "old run\n");
  AppConfig("FileDebugLevel=0\nMemoryTracesFlag=0");
  CDebug debug("Zentrix");
  EXPECT_FALSE(debug.IsEnabled());
  EXPECT_EQ(0u, debug.GetTraceTarget());
  debug.Print(0, "\nnot written");
  EXPECT_EQ("", LogFile());
  EXPECT_NE(0, access(TracePath("log.zentrix_a").c_str(), F_OK));

  debug.PrintAlways(1, "\nCSwitchClient::Attach: always %d", 7);
  char arg0[] = "Zentrix";
  char arg1[] = "-output";
  char* argv[] = {arg0, arg1, nullptr};
  debug.SetMainParams(2, argv);
  std::vector<std::string> lines = Lines(LogFile());
  ASSERT_EQ(4u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find("Zentrix      CSwitchClient::Attach: always 7"));
  EXPECT_NE(std::string::npos, lines[1].find("Zentrix      Zentrix Command Line Options:"));
  EXPECT_NE(std::string::npos, lines[3].find("argv[1] = \"-output\""));
}

TEST_F(DebugTest, TracingOnWithoutRingBufferPrintsNowhere) {
  AppConfig("FileDebugLevel=5\nMemoryTracesFlag=0");
  CDebug debug("Zentrix");
  EXPECT_TRUE(debug.IsEnabled());
  EXPECT_EQ(0u, debug.GetRingSize());
  EXPECT_EQ(0u, debug.GetTraceTarget());
  debug.Print(1, "\nlost");
  EXPECT_EQ("", LogFile());
  debug.SetTarget(CDebug::kTargetLogFile);
  debug.Print(1, "\nkept");
  debug.Print(6, "\nabove the level");
  EXPECT_EQ(1u, Lines(LogFile()).size());
  EXPECT_TRUE(debug.ForceMaxDebug(false));
  debug.Print(1, "\nforced off");
  EXPECT_FALSE(debug.IsEnabled());
  debug.ForceMaxDebug(true);
  debug.Print(5, "\nforced back");
  std::string log = LogFile();
  EXPECT_EQ(0u, Count(log, "forced off"));
  EXPECT_EQ(1u, Count(log, "forced back"));
}

TEST_F(DebugTest, RecordsAbsorbLeadingNewlinesAndEndInExactlyOne) {
  AppConfig("MemoryTracesFlag=0");
  CDebug debug("Zentrix");
  debug.PrintAlways("\n\nCDebug: two leading");
  debug.PrintAlways("\n");
  debug.PrintAlways("ends in newline\n");
  debug.PrintAlways("\ninner\nline");
  std::vector<std::string> lines = Lines(LogFile());
  ASSERT_EQ(5u, lines.size());
  EXPECT_EQ("CDebug: two leading", MessageOf(lines[0], false, "Zentrix"));
  EXPECT_EQ("", MessageOf(lines[1], false, "Zentrix"));
  EXPECT_EQ("ends in newline", lines[2].substr(lines[2].size() - 15));
  EXPECT_EQ("line", lines[4]);

  // The client label replaces the instance name.
  debug.SetTarget(CDebug::kTargetLogFile);
  ClientPrint(debug, "Helper", "\nfrom client %d", 3);
  EXPECT_NE(std::string::npos, LogFile().find("] Helper       from client 3\n"));
}

TEST_F(DebugTest, MemoryColumnIsOnByDefault) {
  AppConfig("FileDebugLevel=1");
  CDebug debug("Zentrix");
  debug.PrintAlways("\nwith memory");
  std::vector<std::string> lines = Lines(LogFile());
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("with memory", MessageOf(lines[0], true, "Zentrix"));
  EXPECT_EQ("<bad header>", MessageOf(lines[0], false, "Zentrix"));
}

TEST_F(DebugTest, RingBufferSizeFromFactorWeightAndPageSize) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=3\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  {
    CDebug debug("Zentrix");
    uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    EXPECT_EQ(2u, debug.GetRingFactor());
    EXPECT_EQ(2 * 1 * page * 256, debug.GetRingSize());
    EXPECT_EQ(2u, debug.GetTraceTarget());
    struct stat info;
    ASSERT_EQ(0, stat(TracePath("log.zentrix_a").c_str(), &info));
    EXPECT_EQ(static_cast<off_t>(debug.GetRingSize()), info.st_size);
  }
  // The per-application variable beats the general one.
  setenv("OV_LOG_RINGBUF_WEIGHT", "3", 1);
  setenv("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", "1", 1);
  setenv("TraceFileLimit", "1", 1);
  CDebug debug("Zentrix");
  EXPECT_EQ(1u, debug.GetRingWeight());
  EXPECT_EQ(static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) * 256, debug.GetRingSize());
}

TEST_F(DebugTest, RingBufferStartsWithHeaderAndOneTrailer) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  setenv("OV_HOSTNAME", "box7", 1);
  CDebug debug("Zentrix");
  debug.Print(2, "\nfirst record");
  debug.Print(3, "\nsuppressed");
  std::string ring = Ring();
  ASSERT_EQ(debug.GetRingSize(), ring.size());
  std::vector<std::string> lines = Lines(ring);
  auto text = [](const std::string& line) { return line.substr(line.find("Zentrix      ") + 13); };
  EXPECT_EQ("Orvana Environment:", text(lines[0]));
  EXPECT_EQ("LD_LIBRARY_PATH=", text(lines[1]).substr(0, 16));
  EXPECT_EQ("OV_HOSTNAME=box7", text(lines[9]));
  EXPECT_EQ("QRT_SYSLOG_FIFO=NotSet", text(lines[41]));
  EXPECT_EQ("OV_LOG_RINGBUF_WEIGHT_ZENTRIX=NotSet", text(lines[42]));
  EXPECT_EQ("Orvana Configuration File:", text(lines[43]));
  EXPECT_EQ("InvAgtPollNetUtilization=NotSet", text(lines[56]));
  EXPECT_EQ("Debug values from ini file :", text(lines[57]));
  EXPECT_EQ("DebugLevel                 : 2", text(lines[59]));
  EXPECT_EQ("Trace Target               : 2", text(lines[66]));
  EXPECT_EQ("Ring Buffer Path           : " + TracePath("log.zentrix_a"), text(lines[77]));
  EXPECT_EQ("# End of header.", text(lines[79]));

  size_t start = ring.find("### Start of initialization. ###");
  ASSERT_NE(std::string::npos, start);
  size_t lineStart = ring.rfind('\n', start) + 1;
  EXPECT_EQ(0u, lineStart % 1024);
  EXPECT_EQ(1u, Count(ring, kTrailer));
  EXPECT_EQ(0u, Count(ring, "suppressed"));
  size_t first = ring.find("first record\n");
  ASSERT_NE(std::string::npos, first);
  EXPECT_EQ(first + 13, ring.find(kTrailer));
}

TEST_F(DebugTest, RingBufferThatCannotStartTurnsTracingOff) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
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
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=2\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  std::string message(2000, 'x');
  {
    CDebug debug("Zentrix");
    debug.Print(1, "\n%s", message.c_str());
    debug.PrintAlways("\n%s", message.c_str());
    std::string ring = Ring();
    EXPECT_EQ(2u, Count(ring, message + "\n"));
    EXPECT_EQ(1u, Count(ring, kTrailer));
    std::string log = LogFile();
    EXPECT_EQ(std::string::npos, log.find(message.substr(0, 1025)));
    EXPECT_NE(std::string::npos, log.find(message.substr(0, 1024) + "\n"));
  }
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
    EXPECT_GT(log.size(), 2000u);
    EXPECT_EQ(1u, Count(log, "12 " + filler));
    for (int i = 0; i < 20; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());
    EXPECT_EQ(0u, LogFile().find("------ WRAP ----- Cycle=2, "));
  }
  CDebug debug("Zentrix");
  debug.PrintAlways("\nstart-up line");
  debug.SetApplInitDone();
  EXPECT_EQ(0u, debug.GetApplInitDone());  // no ring buffer: the flag stays 0
  std::string startPhase = LogFile();
  long initEnd = static_cast<long>(startPhase.size());
  for (int i = 0; i < 15; ++i) debug.PrintAlways("\n%02d %s", i, filler.c_str());
  std::string log = LogFile();
  EXPECT_EQ(startPhase, log.substr(0, initEnd));
  std::string wrap = "------ WRAP ----- Cycle=1, CntInitEnd=" + std::to_string(initEnd) +
                     ", CurrentByteCnt=" + std::to_string(initEnd) + " (MaxCnt=2000)\n";
  EXPECT_EQ(static_cast<size_t>(initEnd), log.find(wrap)) << log;
}

TEST_F(DebugTest, RingWrapKeepsStartPhaseAndExactlyOneTrailer) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=2\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  CDebug debug("Zentrix");
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
  EXPECT_EQ(1u, Count(ring, "### End of initialization. ###"));
  // The record that caused the wrap directly follows the start phase.
  size_t initEnd = ring.find("### End of initialization. ###\n") + 31;
  char tag[32];
  snprintf(tag, sizeof tag, "Zentrix      %06d ", written - 1);
  size_t record = ring.find(tag);
  ASSERT_NE(std::string::npos, record);
  EXPECT_EQ(initEnd, ring.rfind('\n', record) + 1);
}

TEST_F(DebugTest, RingWrapWithoutInitDoneRestartsAfterHeader) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  CDebug debug("Zentrix");
  debug.SetApplInitDone();
  // A 1 MiB ring never has 1 MiB to spare.
  EXPECT_EQ(0u, debug.GetApplInitDone());
  std::string filler(500, 'q');
  for (int i = 0; debug.GetRingWrapCount() < 2 && i < 100000; ++i) {
    debug.Print(2, "\n%s", filler.c_str());
  }
  ASSERT_EQ(2u, debug.GetRingWrapCount());
  std::string ring = Ring();
  EXPECT_EQ(1u, Count(ring, kTrailer));
  EXPECT_EQ(0u, Count(ring, "### Start of initialization. ###"));
  size_t headerEnd = ring.find("# End of header.\n") + 17;
  size_t restart = ring.find(filler);
  EXPECT_EQ((headerEnd + 2048) & ~size_t{1023}, ring.rfind('\n', restart) + 1);
}

TEST_F(DebugTest, DynamicUpdatePicksUpRaisedLevelAfterInterval) {
  Config("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n");
  AppConfig("FileDebugLevel=1\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  setenv("OV_LOG_DEBUG_LEVEL", "2", 1);
  TestDebug debug;
  debug.SetClock(FakeClock);
  g_FakeNow = 1000;
  debug.Init("Zentrix");
  ASSERT_EQ(10u, debug.GetDynamicUpdateInterval());
  ASSERT_EQ(2u, debug.GetTraceLevel());

  debug.Print(2, "\nfirst check");  // the first Print looks at the files
  std::string app = root_.root() + kConfigDir + "/z.ini";
  AppConfig("FileDebugLevel=4\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  struct utimbuf later = {time(nullptr) + 100, time(nullptr) + 100};
  ASSERT_EQ(0, utime(app.c_str(), &later));

  g_FakeNow = 1009;
  debug.Print(4, "\ntoo early");
  EXPECT_EQ(2u, debug.GetTraceLevel());
  g_FakeNow = 1010;
  debug.Print(4, "\nraised");
  EXPECT_EQ(4u, debug.GetTraceLevel());
  EXPECT_EQ(4u, debug.GetSavedTraceLevel());

  // A clock set back also triggers a check.
  AppConfig("FileDebugLevel=1\nRingBufferSizeFactor=1\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
  struct utimbuf latest = {time(nullptr) + 200, time(nullptr) + 200};
  ASSERT_EQ(0, utime(app.c_str(), &latest));
  g_FakeNow = 500;
  debug.Print(2, "\nlowered");
  EXPECT_EQ(1u, debug.GetTraceLevel());

  std::string ring = Ring();
  EXPECT_EQ(1u, Count(ring, "first check"));
  EXPECT_EQ(0u, Count(ring, "too early"));
  EXPECT_EQ(1u, Count(ring, "raised"));
  EXPECT_EQ(0u, Count(ring, "lowered"));
}

TEST_F(DebugTest, ConcurrentPrintsKeepEveryRecordWhole) {
  AppConfig("FileDebugLevel=2\nRingBufferSizeFactor=2\nRingBufferSizeWeight=1\nMemoryTracesFlag=0");
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

  auto wellFormed = [](const std::string& line) {
    std::string message = MessageOf(line, false, "Zentrix");
    return message.size() == 22 && message.compare(0, 7, "thread ") == 0 &&
           (message.compare(9, 5, "ring ") == 0 || message.compare(9, 5, "file ") == 0) &&
           message.compare(18, 4, " end") == 0;
  };
  size_t ringRecords = 0;
  for (const std::string& line : Lines(LogFile())) {
    EXPECT_TRUE(wellFormed(line)) << line;
  }
  std::string ring = Ring();
  for (const std::string& line : Lines(ring)) {
    if (line.find("thread") != std::string::npos) {
      EXPECT_TRUE(wellFormed(line)) << line;
      ++ringRecords;
    }
  }
  EXPECT_EQ(static_cast<size_t>(kThreads * kRecords * 2), ringRecords);
  EXPECT_EQ(static_cast<size_t>(kThreads * kRecords), Lines(LogFile()).size());
  EXPECT_EQ(1u, Count(ring, kTrailer));
}

TEST(DebugNamesTest, LowerCaseAndApplicationVariableName) {
  char name[] = "ZenTrix-1";
  EXPECT_STREQ("zentrix-1", CDebug::StringToLower(name));
  EXPECT_EQ(nullptr, CDebug::StringToLower(nullptr));

  char buf[48] = "OV_LOG_RINGBUF_WEIGHT";
  CDebug::BuildAppVarName(buf, sizeof buf, "Zentrix");
  EXPECT_STREQ("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", buf);
  CDebug::BuildAppVarName(buf, sizeof buf, "");
  CDebug::BuildAppVarName(buf, sizeof buf, nullptr);
  EXPECT_STREQ("OV_LOG_RINGBUF_WEIGHT_ZENTRIX", buf);

  char tight[12] = "ABCDEFGH";
  CDebug::BuildAppVarName(tight, sizeof tight, "very long name");
  EXPECT_STREQ("ABCDEFGH_VE", tight);
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
  debug.Print(1, "\n%s", std::string(5000, 'm').c_str());
  debug.PrintAlways("\n%s", std::string(5000, 'm').c_str());
  debug.SetApplInitDone();
}

}  // namespace
