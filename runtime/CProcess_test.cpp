#include "runtime/CProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "tests/support/TestSupport.h"

namespace {

TEST(CProcessTest, CurrentDirectoryIsLeftUnchangedOnFailure) {
  std::string dir;
  ASSERT_TRUE(CProcess::GetCurrentDir(dir));
  EXPECT_EQ(dir, get_current_directory());
  // A removed working directory cannot be read.
  int saved = open(".", O_RDONLY | O_DIRECTORY);
  ScopedSystemRoot root;
  std::string gone = root.makeDirs("/gone");
  ASSERT_EQ(0, chdir(gone.c_str()));
  ASSERT_EQ(0, rmdir(gone.c_str()));
  EXPECT_FALSE(CProcess::GetCurrentDir(dir));
  EXPECT_EQ("", get_current_directory());
  ASSERT_EQ(0, fchdir(saved));
  close(saved);
  EXPECT_EQ(dir, get_current_directory());  // unchanged by the failure
}

TEST(CProcessTest, MemoryFigureFromStatusFileLeavesValueAloneWhenMissing) {
  ScopedSystemRoot root;
  std::string status = root.writeFile(
      "/proc/42/status", "Name:\tx\nVmPeak:\t  9000 kB\nNotVmRSS:\t 7 kB\nVmRSS:\t    2048 kB\n");
  struct Case {
    std::string path;
    const char* name;
    CProcess::unit unit;
    unsigned long expected;  // 99: not found, value untouched
  } cases[] = {
      {status, "VmRSS:", CProcess::UNIT_KILOBYTE, 2048},
      {status, "VmRSS:", CProcess::UNIT_MEGABYTE, 2},
      {status, "VmPeak:", CProcess::UNIT_BYTE, 9000 * 1024},
      {status, "VmLib:", CProcess::UNIT_KILOBYTE, 99},
      {status + ".none", "VmRSS:", CProcess::UNIT_KILOBYTE, 99},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path + " " + c.name);
    unsigned long value = 99;
    EXPECT_EQ(c.expected != 99,
              CProcess::GetMemorySpecificInfoFromFile(c.path.c_str(), &value, c.name, c.unit));
    EXPECT_EQ(c.expected, value);
  }
  // The own process, through /proc.
  unsigned long rss = 0;
  ASSERT_TRUE(CProcess::GetProcessMemorySpecificInfo(getpid(), &rss, "VmRSS:",
                                                     CProcess::UNIT_KILOBYTE));
  EXPECT_GT(rss, 0u);
}

TEST(CProcessTest, WaitForExitReportsStatusAndSignals) {
  unsigned code = 0;
  for (int status : {3, 0}) {
    pid_t child = fork();
    if (child == 0) _exit(status);
    EXPECT_EQ(status == 0, CProcess::WaitForExit(child, code, 0));
    EXPECT_EQ(static_cast<unsigned>(status), code);
  }
  // Killed by a signal: false and no exit code.
  pid_t child = fork();
  if (child == 0) {
    for (;;) pause();
  }
  EXPECT_TRUE(CProcess::TerminateProcess(child, 0));
  EXPECT_FALSE(CProcess::WaitForExit(child, code, 0));
  EXPECT_EQ(~0u, code);
  EXPECT_FALSE(CProcess::WaitForExit(child, code, 0));  // not a child any more
  EXPECT_FALSE(CProcess::TerminateProcess(0x7FFFFFF0u, 0));
}

}  // namespace
