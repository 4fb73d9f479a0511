#include "runtime/CDebugTraceConfigFile.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

namespace {

constexpr unsigned kAbsent = 12345;

class TraceConfigFileTest : public ::testing::Test {
 protected:
  // Writes text as /cfg/t.ini and opens section in it.
  bool Open(CDebugTraceConfigFile& file, const std::string& text, const char* section = "Zentrix") {
    root_.writeFile("/cfg/t.ini", text);
    return file.OpenSectionInIniFile(section, "t.ini", (root_.root() + "/cfg").c_str());
  }
  static unsigned Number(const CDebugTraceConfigFile& file, const char* key) {
    unsigned value = kAbsent;
    return file.ReadUnsigned(key, value) ? value : kAbsent;
  }

  ScopedSystemRoot root_;
};

// The key is a plain substring of the section; its value follows the next
// "=", even on a later line, and is read with strtoul base 0. Each case sits
// in "[ZENTRIX]" between two other sections: section names ignore case, and
// a section ends at the next "[".
TEST_F(TraceConfigFileTest, KeySearchIsPlainSubstringWithLooseValue) {
  const std::pair<const char*, unsigned> cases[] = {
      {"FileDebugLevel=2", 2},
      {"# FileDebugLevel = 5 was too noisy\nFileDebugLevel = 1", 5},
      {"FileDebugLevel\n\n   =  \t 010", 8},
      {"FileDebugLevel=0x10", 16},
      {"FileDebugLevel: 3\nTraceFlags=7", 7},
      {"FileDebugLevel=junk", 0},
      {"FileDebugLevel 4", kAbsent},
      {"TraceFlags=1", kAbsent},
  };
  for (const auto& [body, expected] : cases) {
    SCOPED_TRACE(body);
    CDebugTraceConfigFile file;
    ASSERT_TRUE(Open(file,
                     std::string("[Other]\nFileDebugLevel=9\njunk [ZENTRIX]\n") + body +
                         "\n[Next]\nFileDebugLevel=6\n[EndOfFile]\n",
                     "zentrix"));
    EXPECT_EQ(expected, Number(file, "FileDebugLevel"));
  }
}

TEST_F(TraceConfigFileTest, LongValuesAreCutNotOverrun) {
  CDebugTraceConfigFile file;
  ASSERT_TRUE(Open(file, "[Zentrix]\nTraceFlags=" + std::string(64, '0') +
                             "7\nRingBufferDirectory=  /tmp/a dir  \nLong=" +
                             std::string(400, 'p') + "\n[EndOfFile]\n"));
  EXPECT_EQ(0u, Number(file, "TraceFlags"));  // only 64 characters count
  char text[256];
  ASSERT_TRUE(file.ReadText("Long", text, sizeof text, 255));
  EXPECT_EQ(std::string(255, 'p'), text);
  ASSERT_TRUE(file.ReadText("RingBufferDirectory", text, sizeof text, 255));
  EXPECT_STREQ("/tmp/a dir  ", text);
  ASSERT_TRUE(file.ReadText("RingBufferDirectory", text, 5, 255));
  EXPECT_STREQ("/tmp", text);
}

// The last bracketed name must be [EndOfFile], in any case, or the whole
// file is ignored.
TEST_F(TraceConfigFileTest, EndOfFileMarkerDecidesWholeFile) {
  const std::pair<const char*, bool> cases[] = {
      {"[Zentrix]\nFileDebugLevel=1\n[endoffile]\n", true},
      {"[Zentrix]\nFileDebugLevel=1\n[EndOfFile] trailing text\n", true},
      {"[Zentrix]\nFileDebugLevel=1\n[EndOfFile] [x]\n", false},
      {"[Zentrix]\nFileDebugLevel=1\n", false},
      {"[Zentrix]\nFileDebugLevel=1\nEndOfFile]\n", false},
      {"[EndOfFile]\n[Zentrix]\nFileDebugLevel=1\n", false},
      {"", false},
      {"[Zentrix\nFileDebugLevel=1\n[EndOfFile]\n", false},
      {"[Other]\nFileDebugLevel=1\n[EndOfFile]\n", false},
  };
  for (const auto& [text, accepted] : cases) {
    SCOPED_TRACE(text);
    CDebugTraceConfigFile file;
    EXPECT_EQ(accepted, Open(file, text));
    EXPECT_EQ(accepted, file.IsOpen());
    EXPECT_EQ(accepted, !file.Path().empty());
  }
}

TEST_F(TraceConfigFileTest, ReopenReadsRememberedPathAndClosesWhenFileShrank) {
  CDebugTraceConfigFile file;
  EXPECT_FALSE(file.OpenSectionInIniFile("Zentrix", "none.ini", root_.root().c_str()));
  ASSERT_TRUE(Open(file, "[Zentrix]\nFileDebugLevel=1\n[EndOfFile]\n"));
  EXPECT_EQ(root_.root() + "/cfg/t.ini", file.Path());
  root_.writeFile("/cfg/t.ini", "[Zentrix]\nFileDebugLevel=3\n[EndOfFile]\n");
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  EXPECT_EQ(3u, Number(file, "FileDebugLevel"));
  // Fewer bytes than recorded cannot be read.
  root_.writeFile("/cfg/t.ini", "[x]");
  EXPECT_FALSE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  EXPECT_TRUE(file.Path().empty());
  EXPECT_EQ(kAbsent, Number(file, "FileDebugLevel"));
}

}  // namespace
