#include "runtime/CProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/support/ScopedSystemRoot.h"

namespace {

TEST(CProcessTest, CurrentDirectoryAndItsFailure) {
  std::string dir;
  ASSERT_TRUE(CProcess::GetCurrentDir(dir));
  EXPECT_EQ('/', dir[0]);
  EXPECT_EQ(dir, get_current_directory());

  // A working directory that was removed cannot be read.
  int saved = open(".", O_RDONLY | O_DIRECTORY);
  ASSERT_GE(saved, 0);
  ScopedSystemRoot root;
  std::string gone = root.makeDirs("/gone");
  ASSERT_EQ(0, chdir(gone.c_str()));
  ASSERT_EQ(0, rmdir(gone.c_str()));
  std::string kept = "unchanged";
  EXPECT_FALSE(CProcess::GetCurrentDir(kept));
  EXPECT_EQ("unchanged", kept);
  EXPECT_EQ("", get_current_directory());
  ASSERT_EQ(0, fchdir(saved));
  close(saved);
}

TEST(CProcessTest, MemoryFigureFromStatusFile) {
  ScopedSystemRoot root;
  std::string status = root.writeFile("/proc/42/status",
                                      "Name:\tx\nVmPeak:\t  9000 kB\nVmRSSX:\t 7 kB\n"
                                      "VmRSS:\t    2048 kB\nVmSwap:\t0 kB\n");
  unsigned long value = 99;
  EXPECT_TRUE(CProcess::GetMemorySpecificInfoFromFile(status.c_str(), &value, "VmRSS:",
                                                      CProcess::UNIT_KILOBYTE));
  EXPECT_EQ(2048u, value);
  EXPECT_TRUE(CProcess::GetMemorySpecificInfoFromFile(status.c_str(), &value, "VmRSS:",
                                                      CProcess::UNIT_MEGABYTE));
  EXPECT_EQ(2u, value);
  EXPECT_TRUE(CProcess::GetMemorySpecificInfoFromFile(status.c_str(), &value, "VmPeak:",
                                                      CProcess::UNIT_BYTE));
  EXPECT_EQ(9000u * 1024u, value);

  // Missing line or missing file: false, value untouched.
  value = 99;
  EXPECT_FALSE(CProcess::GetMemorySpecificInfoFromFile(status.c_str(), &value, "VmLib:",
                                                       CProcess::UNIT_KILOBYTE));
  EXPECT_FALSE(CProcess::GetMemorySpecificInfoFromFile((status + ".none").c_str(), &value,
                                                       "VmRSS:", CProcess::UNIT_KILOBYTE));
  EXPECT_EQ(99u, value);
}

TEST(CProcessTest, MemoryFiguresOfOwnProcess) {
  unsigned long rss = 0;
  ASSERT_TRUE(CProcess::GetProcessMemorySpecificInfo(getpid(), &rss, "VmRSS:",
                                                     CProcess::UNIT_KILOBYTE));
  EXPECT_GT(rss, 0u);
  unsigned long none = 5;
  EXPECT_FALSE(CProcess::GetProcessMemorySpecificInfo(getpid(), &none, "NoSuchFigure:",
                                                      CProcess::UNIT_KILOBYTE));
  EXPECT_EQ(5u, none);

  unsigned long peak = 0, size = 0, lib = 0, swap = 0, rss2 = 0;
  CProcess::GetProcessMemoryInfo(getpid(), &peak, &size, &lib, &swap, &rss2);
  EXPECT_GT(peak, 0u);
  EXPECT_GE(peak, rss2);
  EXPECT_GT(size, 0u);
}

TEST(CProcessTest, WaitForExitReportsStatusAndSignals) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(3);
  unsigned code = 0;
  EXPECT_FALSE(CProcess::WaitForExit(child, code, 0));
  EXPECT_EQ(3u, code);

  child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  EXPECT_TRUE(CProcess::WaitForExit(child, code, 0));
  EXPECT_EQ(0u, code);

  // Killed by a signal: false and no exit code.
  child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (;;) pause();
  }
  EXPECT_TRUE(CProcess::TerminateProcess(child, 0));
  EXPECT_FALSE(CProcess::WaitForExit(child, code, 0));
  EXPECT_EQ(~0u, code);

  // Not a child (any more): false.
  EXPECT_FALSE(CProcess::WaitForExit(child, code, 0));
  EXPECT_FALSE(CProcess::TerminateProcess(0x7FFFFFF0u, 0));
}

}  // namespace
