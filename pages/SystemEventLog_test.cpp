#include "pages/SystemEventLog.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/CRegistry.h"
#include "tests/support/TestSupport.h"
#include "xml/CMarkup.h"

namespace {

using Bytes = std::vector<unsigned char>;

// One record as the agent lays it out; length 0 means "computed".
Bytes record(unsigned severity, uint16_t code, int32_t time, const std::string& message, size_t length = 0) {
  Bytes bytes(16, 0xEE);  // unread bytes filled on purpose
  auto put = [&bytes](size_t at, uint32_t value, int size) {
    for (int i = 0; i < size; ++i) bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
  };
  put(0, static_cast<uint32_t>(length != 0 ? length : 16 + message.size() + 1), 2);
  put(3, severity, 1);
  put(4, code, 2);
  put(8, static_cast<uint32_t>(time), 4);
  for (char c : message) bytes.push_back(static_cast<unsigned char>(c));
  bytes.push_back('\0');
  return bytes;
}

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

std::vector<SystemEventLog::Row> rowsOf(const Bytes& block) {
  // An exact-size heap copy, so ASan catches a read past the block.
  std::unique_ptr<unsigned char[]> copy(new unsigned char[block.size()]);
  std::copy(block.begin(), block.end(), copy.get());
  return SystemEventLog::rowsFromBlock(block.empty() ? nullptr : copy.get(), block.size());
}

TEST(EventLogTextTest, CodeMovesItsHighByteUpTimeIsUtcAndSeverityMapsOrThrows) {
  // The golden reports show codes with and without a high byte; here the extremes.
  const std::pair<uint16_t, const char*> codes[] = {{0, "0x0000"}, {0xFFFF, "0xFF00FF"}};
  for (const auto& c : codes) EXPECT_EQ(c.second, SystemEventLog::codeText(c.first)) << c.first;

  // A local zone far from UTC proves the breakdown ignores it.
  ScopedEnv zone("TZ", "XYZ+11");
  // Times 0 and -1 (no date) are in the golden reports.
  const std::pair<int32_t, const char*> times[] = {{1, "1970/01/01 00:00:01"}, {INT32_MAX, "2038/01/19 03:14:07"}};
  for (const auto& t : times) EXPECT_EQ(t.second, SystemEventLog::timeText(t.first)) << t.first;

  const ComponentStatus severities[] = {{STATUS_NORMAL, "Info"}, {STATUS_WARNING, "Minor"},
                                        {STATUS_ERROR, "Major"}, {STATUS_ERROR, "Critical"}};
  for (unsigned s = 0; s < 4; ++s) EXPECT_EQ(severities[s], SystemEventLog::severityStatus(s)) << s;
  std::string failure = "no exception";
  try { SystemEventLog::severityStatus(4); } catch (const std::out_of_range& e) { failure = e.what(); }
  EXPECT_EQ("map::at", failure);
  // Also where the walk then stops: a length below the header, a block that
  // ends after the severity.
  for (const Bytes& block : {join({record(0, 1, 1, "ok"), record(4, 1, 1, "bad")}), record(9, 1, 1, "bad", 3),
                             join({record(0, 1, 1, "ok"), {5, 0, 0, 9}})}) {
    EXPECT_THROW(rowsOf(block), std::out_of_range);
  }
}

TEST(EventLogRowsTest, RowsInBlockOrderUntilARecordIsInconsistent) {
  const Bytes good = record(3, 0xABCD, 1, "first");
  Bytes padded = record(1, 0x0042, 0, "", 40);  // a record longer than header and message
  padded.resize(40, 'z');
  Bytes zeroLength = record(0, 2, 1, "x");
  zeroLength[0] = 0;
  Bytes headerOnly = record(1, 0x42, 0, "", 16), twelve = record(1, 0x42, 0, "", 12);
  headerOnly.pop_back();
  twelve.resize(12);
  // A record is shown before its length is judged. The walk stops only where
  // it would loop (length 0) or leave the block; a message runs on to its NUL
  // inside the block (the next record's length byte 22 for a header-only one)
  // but no further than its record is long.
  const std::vector<std::string> first = {"first"};
  struct Case { const char* what; Bytes block; std::vector<std::string> messages; } cases[] = {
      {"empty block", {}, {}},
      {"after a padded record", join({good, padded, good}), {"first", "", "first"}},
      {"zero length", join({good, zeroLength, good}), {"first", "x"}},
      {"length past the end", join({good, record(0, 2, 1, "x", 100)}), {"first", "x"}},
      {"header-only record", join({headerOnly, good}), {"\x16", "first"}},
      {"length below the header", join({twelve, good, twelve}), {"\xCD\xAB\xEE\xEE\x01", "first", ""}},
      {"time runs past the end", join({good, Bytes(good.begin(), good.begin() + 11)}), first},
      {"three stray bytes", join({good, {0x20, 0, 0}}), first},
      {"message without NUL", join({good, {19, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 'c'}}),
       {"first", "abc"}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> messages;
    for (const auto& row : rowsOf(c.block)) messages.push_back(row.cells.at(2));
    EXPECT_EQ(c.messages, messages) << c.what;
  }
}

// A message file that does not parse counts as missing and leaves no half
// document; the wrapper's text form, which the loader never uses, reads a
// text and empties the document without one.
TEST(EventLogMessageFileTest, WorkingDirectoryFirstThenTheRegisteredProgramDirectory) {
  ScopedSystemRoot root;
  const std::filesystem::path oldDir = std::filesystem::current_path();
  std::filesystem::current_path(root.makeDirs("/work"));
  root.writeFile("/etc/orvmon/registry",
                 "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tarnwell]\n[Management]\n[Server Control]\n[Setup]\n"
                 "BinRoot=s=" + root.makeDirs("/opt/suite/bin") + "/\n\n\n\n\n\n\n");
  CRegistry::SetupTree(true);
  CMarkup messages;
  EXPECT_FALSE(SystemEventLog::loadMessageFile(messages));
  root.writeFile("/opt/suite/bin/ERRMSG.XML", "<Installed><Msg></Installed>");
  EXPECT_FALSE(SystemEventLog::loadMessageFile(messages));
  EXPECT_TRUE(messages.IsEmpty());
  root.writeFile("/opt/suite/bin/ERRMSG.XML", "<Installed/>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Installed", messages.GetRootName());
  root.writeFile("/work/ERRMSG.XML", "<Local/>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Local", messages.GetRootName()) << "the working directory wins";
  root.writeFile("/work/ERRMSG.XML", "<Broken>");
  EXPECT_TRUE(SystemEventLog::loadMessageFile(messages));
  EXPECT_EQ("Installed", messages.GetRootName()) << "an unreadable local file falls through";
  std::filesystem::current_path(oldDir);
  EXPECT_TRUE(messages.SetDoc("<a><b/></a>"));
  EXPECT_EQ("a", messages.GetRootName());
  EXPECT_TRUE(messages.SetDoc());
  EXPECT_TRUE(messages.IsEmpty());
}

}  // namespace
