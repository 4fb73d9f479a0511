#include "pages/SystemEventLog.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/CRegistry.h"
#include "tests/support/ScopedSystemRoot.h"
#include "xml/CMarkup.h"

namespace {

// One record as the agent lays it out; length 0 means "computed".
std::vector<unsigned char> record(unsigned severity, uint16_t code, int32_t time, const std::string& message,
                                  size_t length = 0) {
  if (length == 0) length = 16 + message.size() + 1;
  uint32_t t = static_cast<uint32_t>(time);
  std::vector<unsigned char> bytes(16, 0xEE);  // unread bytes filled on purpose
  bytes[0] = static_cast<unsigned char>(length & 0xFF);
  bytes[1] = static_cast<unsigned char>(length >> 8);
  bytes[3] = static_cast<unsigned char>(severity);
  bytes[4] = static_cast<unsigned char>(code & 0xFF);
  bytes[5] = static_cast<unsigned char>(code >> 8);
  for (int i = 0; i < 4; ++i) bytes[8 + i] = static_cast<unsigned char>(t >> (8 * i));
  for (char c : message) bytes.push_back(static_cast<unsigned char>(c));
  bytes.push_back('\0');
  return bytes;
}

std::vector<unsigned char> join(std::initializer_list<std::vector<unsigned char>> parts) {
  std::vector<unsigned char> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

std::vector<SystemEventLog::Row> rowsOf(const std::vector<unsigned char>& block) {
  // An exact-size heap copy, so ASan catches a read past the block.
  std::unique_ptr<unsigned char[]> copy(new unsigned char[block.size() + 1]);
  std::copy(block.begin(), block.end(), copy.get());
  return SystemEventLog::rowsFromBlock(block.empty() ? nullptr : copy.get(), block.size());
}

TEST(EventLogTextTest, CodeMovesItsHighByteUpAndTimeIsUtc) {
  EXPECT_EQ("0x0042", SystemEventLog::codeText(0x0042));
  EXPECT_EQ("0x10023", SystemEventLog::codeText(0x0123));
  EXPECT_EQ("0xAB00CD", SystemEventLog::codeText(0xABCD));
  EXPECT_EQ("0x120034", SystemEventLog::codeText(0x1234));
  EXPECT_EQ("0x0000", SystemEventLog::codeText(0));
  EXPECT_EQ("0xFF00FF", SystemEventLog::codeText(0xFFFF));

  // A local zone far from UTC proves the breakdown ignores it.
  const char* oldZone = std::getenv("TZ");
  std::string saved = oldZone != nullptr ? oldZone : "";
  setenv("TZ", "XYZ+11", 1);
  tzset();
  EXPECT_EQ(" <no date/no time> ", SystemEventLog::timeText(0));
  EXPECT_EQ(" <no date/no time> ", SystemEventLog::timeText(-1));
  EXPECT_EQ(" <no date/no time> ", SystemEventLog::timeText(INT32_MIN));
  EXPECT_EQ("1970/01/01 00:00:01", SystemEventLog::timeText(1));
  EXPECT_EQ("2024/01/01 00:00:00", SystemEventLog::timeText(1704067200));
  EXPECT_EQ("2038/01/19 03:14:07", SystemEventLog::timeText(INT32_MAX));
  if (oldZone != nullptr) setenv("TZ", saved.c_str(), 1);
  else unsetenv("TZ");
  tzset();
}

TEST(EventLogTextTest, SeverityTableAndItsDeliberateFailure) {
  EXPECT_EQ(ComponentStatus(STATUS_NORMAL, "Info"), SystemEventLog::severityStatus(0));
  EXPECT_EQ(ComponentStatus(STATUS_WARNING, "Minor"), SystemEventLog::severityStatus(1));
  EXPECT_EQ(ComponentStatus(STATUS_ERROR, "Major"), SystemEventLog::severityStatus(2));
  EXPECT_EQ(ComponentStatus(STATUS_ERROR, "Critical"), SystemEventLog::severityStatus(3));
  try {
    SystemEventLog::severityStatus(4);
    FAIL() << "severity 4 must not map";
  } catch (const std::out_of_range& failure) {
    EXPECT_STREQ("map::at", failure.what());
  }
}

TEST(EventLogRowsTest, WellFormedRecordsBecomeRowsInBlockOrder) {
  auto block = join({record(3, 0xABCD, 1, "DIMM failed"), record(1, 0x0042, 0, "Fan slow"),
                     record(0, 0x0123, 1704067200, "", 40)});  // padded record, empty message
  block.resize(block.size() + (40 - 17), 'z');
  auto rows = rowsOf(block);
  ASSERT_EQ(3u, rows.size());
  EXPECT_EQ(ComponentStatus(STATUS_ERROR, "Critical"), rows[0].status);
  EXPECT_EQ((std::vector<std::string>{"0xAB00CD", "1970/01/01 00:00:01", "DIMM failed"}), rows[0].cells);
  EXPECT_EQ(ComponentStatus(STATUS_WARNING, "Minor"), rows[1].status);
  EXPECT_EQ((std::vector<std::string>{"0x0042", " <no date/no time> ", "Fan slow"}), rows[1].cells);
  EXPECT_EQ((std::vector<std::string>{"0x10023", "2024/01/01 00:00:00", ""}), rows[2].cells);

  EXPECT_TRUE(rowsOf({}).empty());
}

TEST(EventLogRowsTest, InconsistentLengthsStopTheWalkAndKeepEarlierRows) {
  auto good = record(0, 1, 1, "first");
  struct Case {
    const char* what;
    std::vector<unsigned char> block;
    size_t rows;
  };
  std::vector<Case> cases = {
      {"zero length", join({good, record(0, 2, 1, "x", 0xFFFF)}), 1},
      {"length below the header", join({good, record(0, 2, 1, "xxxxxxxxxxxx", 15)}), 1},
      {"length past the end", join({good, record(0, 2, 1, "x", 100)}), 1},
      {"header cut short", join({good, std::vector<unsigned char>(good.begin(), good.begin() + 10)}), 1},
      {"single stray byte", join({good, {0x20}}), 1},
      {"message without NUL", join({good, std::vector<unsigned char>{19, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0,
                                                                     'a', 'b', 'c'}}), 1},
      {"header-only record", join({std::vector<unsigned char>(good.begin(), good.begin() + 16)}), 0},
  };
  cases[0].block[good.size()] = 0;  // the second record's length is 0
  cases[0].block[good.size() + 1] = 0;
  for (const Case& c : cases) {
    auto rows = rowsOf(c.block);
    EXPECT_EQ(c.rows, rows.size()) << c.what;
    if (!rows.empty()) {
      EXPECT_EQ("first", rows[0].cells[2]) << c.what;
    }
  }
}

TEST(EventLogRowsTest, OutOfRangeSeverityEscapesUnlessTheWalkStoppedBefore) {
  EXPECT_THROW(rowsOf(join({record(0, 1, 1, "ok"), record(4, 1, 1, "bad")})), std::out_of_range);
  EXPECT_THROW(rowsOf(record(255, 1, 1, "bad")), std::out_of_range);
  EXPECT_EQ(1u, rowsOf(join({record(0, 1, 1, "ok"), record(9, 1, 1, "bad", 3)})).size());
}

TEST(EventLogRowsTest, RandomBlocksNeverReadOutsideOrHang) {
  std::mt19937 random(20240601);
  for (int round = 0; round < 3000; ++round) {
    std::vector<unsigned char> block(random() % 200);
    for (unsigned char& byte : block) byte = static_cast<unsigned char>(random());
    // Mostly plausible lengths and severities, so walks get past the first record.
    if (block.size() >= 4 && round % 2 == 0) {
      block[0] = static_cast<unsigned char>(17 + random() % 40);
      block[1] = 0;
      block[3] = static_cast<unsigned char>(random() % 4);
    }
    try {
      auto rows = rowsOf(block);
      EXPECT_LE(rows.size(), block.size() / 17);
    } catch (const std::out_of_range&) {
    }
  }
}

// The message file search, from a scratch working directory.
class MessageFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char buffer[4096];
    ASSERT_NE(nullptr, getcwd(buffer, sizeof buffer));
    oldDir_ = buffer;
    work_ = root_.makeDirs("/work");
    ASSERT_EQ(0, chdir(work_.c_str()));
  }
  void TearDown() override { ASSERT_EQ(0, chdir(oldDir_.c_str())); }
  void registerBinRoot(const std::string& dir) {
    root_.writeFile("/etc/orvmon/registry",
                    "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tarnwell]\n[Management]\n[Server Control]\n[Setup]\n"
                    "BinRoot=s=" + dir + "\n\n\n\n\n\n\n");
    CRegistry::SetupTree(true);
  }

  ScopedSystemRoot root_;
  std::string oldDir_;
  std::string work_;
};

TEST_F(MessageFileTest, WorkingDirectoryFirstThenTheRegisteredProgramDirectory) {
  const std::string installed = root_.makeDirs("/opt/suite/bin");
  registerBinRoot(installed + "/");
  CMarkup messages;
  EXPECT_FALSE(SystemEventLog::loadMessageFile(messages));

  root_.writeFile("/opt/suite/bin/ERRMSG.XML", "<Messages><Installed/></Messages>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Messages", messages.GetRootName());

  root_.writeFile("/work/ERRMSG.XML", "<Local/>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Local", messages.GetRootName()) << "the working directory wins";

  root_.writeFile("/work/ERRMSG.XML", "<Broken>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Messages", messages.GetRootName()) << "an unreadable local file falls through";
}

}  // namespace
