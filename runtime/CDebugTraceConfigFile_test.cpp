#include "runtime/CDebugTraceConfigFile.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

constexpr unsigned kAbsent = 12345, kRejected = 54321;

// FileDebugLevel as read from section "zentrix" of a file, or why not. The
// last bracketed name must be [EndOfFile], in any case, or the whole file is
// ignored; section names ignore case and a section ends at the next "[". The
// key is a plain substring of the section; its value follows the next "=",
// even on a later line, and is read with strtoul base 0 from at most 64
// characters.
TEST(TraceConfigFileTest, SectionAndKeySearchIsLoose) {
  auto section = [](const std::string& body) {
    return "[Other]\nFileDebugLevel=9\njunk [ZENTRIX]\n" + body + "\n[Next]\nFileDebugLevel=6\n[EndOfFile]\n";
  };
  const std::pair<std::string, unsigned> cases[] = {
      {section("FileDebugLevel=2"), 2}, {section("# FileDebugLevel = 5 was too noisy\nFileDebugLevel = 1"), 5},
      {section("FileDebugLevel\n\n   =  \t 010"), 8}, {section("FileDebugLevel: 3\nTraceFlags=7"), 7},
      {section("FileDebugLevel=junk"), 0}, {section("FileDebugLevel=" + std::string(63, '0') + "78"), 7},
      {section("FileDebugLevel 4"), kAbsent}, {section("TraceFlags=1"), kAbsent},
      {"[Zentrix]\nFileDebugLevel=1\n[endoffile] trailing text\n", 1},
      {"[Zentrix]\nFileDebugLevel=1\n[EndOfFile] [x]\n", kRejected}, {"[Zentrix]\nFileDebugLevel=1\n", kRejected},
      {"[Zentrix]\nFileDebugLevel=1\nEndOfFile]\n", kRejected}, {"[EndOfFile]\n[Zentrix]\n", kRejected},
      {"", kRejected}, {"[Zentrix\nFileDebugLevel=1\n[EndOfFile]\n", kRejected},
      {"[Zentrix-2]\nFileDebugLevel=1\n[EndOfFile]\n", kRejected}};
  for (const auto& [text, expected] : cases) {
    ScopedSystemRoot root;
    root.writeFile("/t.ini", text);
    CDebugTraceConfigFile file;
    unsigned value = 0;
    bool open = file.OpenSectionInIniFile("zentrix", "t.ini", root.root().c_str());
    EXPECT_EQ(expected, !open ? kRejected : file.ReadUnsigned("FileDebugLevel", value) ? value : kAbsent) << text;
    EXPECT_EQ(open, !file.Path().empty()) << text;
  }
}

// A value is cut at the limit or the buffer, whichever is shorter. A file
// that shrank below the size noted cannot be read again and closes the reader.
TEST(TraceConfigFileTest, TextIsCutNotOverrunAndAShrunkFileClosesTheReader) {
  ScopedSystemRoot root;
  root.writeFile("/t.ini", "[Zentrix]\nDir=  /tmp/a dir  \nLong=" + std::string(400, 'p') + "\n[EndOfFile]\n");
  CDebugTraceConfigFile file;
  ASSERT_TRUE(file.OpenSectionInIniFile("Zentrix", "t.ini", root.root().c_str()));
  char text[256];
  ASSERT_TRUE(file.ReadText("Long", text, sizeof text, 100));
  EXPECT_EQ(std::string(100, 'p'), text);
  ASSERT_TRUE(file.ReadText("Dir", text, 5, 5));
  EXPECT_STREQ("/tmp", text);
  ASSERT_TRUE(file.ReadText("Dir", text, sizeof text, 255));
  EXPECT_STREQ("/tmp/a dir  ", text);
  root.writeFile("/t.ini", "[x]");
  EXPECT_FALSE(file.OpenSectionInIniFile("Zentrix", nullptr, nullptr));
  EXPECT_EQ("", file.Path());
}
