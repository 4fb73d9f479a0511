#include "runtime/CDebugTraceConfigFile.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

#include "runtime/CDirectoryList.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

class TraceConfigFileTest : public ::testing::Test {
 protected:
  // Writes /cfg/<name> and returns the directory.
  std::string Write(const std::string& name, const std::string& text) {
    root_.writeFile("/cfg/" + name, text);
    return root_.root() + "/cfg";
  }
  static unsigned Number(const CDebugTraceConfigFile& file, const char* key) {
    unsigned value = 12345;
    return file.ReadUnsigned(key, value) ? value : 12345;
  }

  ScopedSystemRoot root_;
};

TEST_F(TraceConfigFileTest, FindsSectionWithoutRegardToCaseAndCutsAtNextBracket) {
  std::string dir = Write("t.ini",
                          "[Other]\nFileDebugLevel=9\n"
                          "junk [ZENTRIX]\nFileDebugLevel=2\nTraceFlags=0x10\n"
                          "[Next]\nRingBufferSizeWeight=4\n[EndOfFile]\n");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", "t.ini", dir.c_str()));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(dir + "/t.ini", file.Path());
  EXPECT_EQ(2u, Number(file, "FileDebugLevel"));
  EXPECT_EQ(16u, Number(file, "TraceFlags"));
  // Keys of the following section are out of reach.
  EXPECT_EQ(12345u, Number(file, "RingBufferSizeWeight"));

  CDebugTraceConfigFile missing;
  EXPECT_FALSE(missing.OpenSectionInIniFile("Zentrix", "none.ini", dir.c_str()));
  EXPECT_FALSE(missing.OpenSectionInIniFile("Absent", "t.ini", dir.c_str()));
  EXPECT_TRUE(missing.Path().empty());
}

TEST_F(TraceConfigFileTest, KeySearchIsPlainSubstringWithLooseValue) {
  std::string dir = Write("k.ini",
                          "[Zentrix]\n"
                          "# FileDebugLevel = 5 was too noisy\n"
                          "FileDebugLevel = 1\n"
                          "TraceFlags\n\n   =  \t 010\n"
                          "RingBufferSizeFactor: 3\n"
                          "RingBufferDirectory=  /tmp/some dir  \n"
                          "MemoryTracesFlag=junk\n"
                          "[EndOfFile]");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("zentrix", "k.ini", dir.c_str()));
  // The comment holds the first occurrence of the key.
  EXPECT_EQ(5u, Number(file, "FileDebugLevel"));
  // "=" on a later line; octal through base 0.
  EXPECT_EQ(8u, Number(file, "TraceFlags"));
  // No "=" directly after the key: the next "=" in the section is taken.
  EXPECT_EQ(0u, Number(file, "RingBufferSizeFactor"));
  EXPECT_EQ(0u, Number(file, "MemoryTracesFlag"));
  EXPECT_EQ(12345u, Number(file, "NoHeaderToStderr"));

  char text[256];
  ASSERT_TRUE(file.ReadText("RingBufferDirectory", text, sizeof text, 255));
  EXPECT_STREQ("/tmp/some dir  ", text);
  ASSERT_TRUE(file.ReadText("RingBufferDirectory", text, 5, 255));
  EXPECT_STREQ("/tmp", text);
}

TEST_F(TraceConfigFileTest, KeyWithoutAnyEqualsSignIsAbsent) {
  std::string dir = Write("e.ini", "[Zentrix]\nFileDebugLevel 4\n[EndOfFile]\n");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", "e.ini", dir.c_str()));
  EXPECT_EQ(12345u, Number(file, "FileDebugLevel"));
}

TEST_F(TraceConfigFileTest, LongValuesAreCutNotOverrun) {
  std::string digits(300, '7');
  std::string path(400, 'p');
  std::string dir = Write("l.ini", "[Zentrix]\nTraceFlags=" + digits + "\nRingBufferDirectory=" +
                                       path + "\n[EndOfFile]\n");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", "l.ini", dir.c_str()));
  EXPECT_EQ(static_cast<unsigned>(strtoul(digits.substr(0, 64).c_str(), nullptr, 0)),
            Number(file, "TraceFlags"));
  char text[256];
  ASSERT_TRUE(file.ReadText("RingBufferDirectory", text, sizeof text, 255));
  EXPECT_EQ(std::string(255, 'p'), text);
}

TEST_F(TraceConfigFileTest, EndOfFileMarkerDecidesWholeFile) {
  struct Case {
    const char* text;
    bool accepted;
  } cases[] = {
      {"[Zentrix]\nFileDebugLevel=1\n[endoffile]\n", true},
      {"[Zentrix]\nFileDebugLevel=1\n[EndOfFile] trailing text\n", true},
      {"[Zentrix]\nFileDebugLevel=1\n[EndOfFile] [x]\n", false},
      {"[Zentrix]\nFileDebugLevel=1\n", false},
      {"[Zentrix]\nFileDebugLevel=1\nEndOfFile]\n", false},
      {"[EndOfFile]\n[Zentrix]\nFileDebugLevel=1\n", false},
      {"", false},
      {"[Zentrix\nFileDebugLevel=1\n[EndOfFile]\n", false},
  };
  for (const Case& c : cases) {
    std::string dir = Write("m.ini", c.text);
    CDebugTraceConfigFile file;
    EXPECT_EQ(c.accepted, file.OpenSectionInIniFile("Zentrix", "m.ini", dir.c_str())) << c.text;
    if (!c.accepted) {
      EXPECT_TRUE(file.Path().empty());
      EXPECT_EQ(0, file.Size());
      EXPECT_FALSE(file.IsOpen());
    }
  }
}

TEST_F(TraceConfigFileTest, ReopenReadsRememberedPath) {
  std::string dir = Write("r.ini", "[Zentrix]\nFileDebugLevel=1\n[EndOfFile]\n");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", "r.ini", dir.c_str()));
  Write("r.ini", "[Zentrix]\nFileDebugLevel=3\n[EndOfFile]\n");
  struct stat info;
  ASSERT_EQ(0, stat(file.Path().c_str(), &info));
  file.SetFileState(info.st_size, info.st_mtime);
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  EXPECT_EQ(3u, Number(file, "FileDebugLevel"));

  // A file that shrank below the recorded size is unreadable: the reader closes.
  Write("r.ini", "[x]");
  EXPECT_FALSE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  EXPECT_TRUE(file.Path().empty());
  EXPECT_FALSE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  file.CloseSectionInIniFile();
  EXPECT_EQ(12345u, Number(file, "FileDebugLevel"));
}

TEST_F(TraceConfigFileTest, DirectoryListingTakesIniAnywhereInAlphabeticalOrder) {
  for (const char* name : {"b.ini", "a.ini.bak", "readme.txt", "global_trace.ini", "ini", "C.INI"}) {
    Write(name, "x");
  }
  std::vector<std::string> names;
  ASSERT_TRUE(CDirectoryList::ListIniFiles((root_.root() + "/cfg").c_str(), names));
  EXPECT_EQ((std::vector<std::string>{"a.ini.bak", "b.ini", "global_trace.ini"}), names);
  EXPECT_FALSE(CDirectoryList::ListIniFiles((root_.root() + "/missing").c_str(), names));
  EXPECT_TRUE(names.empty());
}

}  // namespace
