#include "runtime/CProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "tests/support/TestSupport.h"

// The figure of the line that begins with the name, in the unit asked for;
// the value is left alone when there is none.
TEST(CProcessTest, MemoryFigureFromTheStatusFile) {
  ScopedSystemRoot root;
  const std::string status = root.writeFile("/proc/42/status", "NotVmRSS:\t 7 kB\nVmRSS:\t 2048 kB\nVmLib:\tn/a\n");
  struct { std::string path; const char* name; CProcess::unit unit; unsigned long expected; } cases[] = {
      {status, "VmRSS:", CProcess::UNIT_KILOBYTE, 2048}, {status, "VmRSS:", CProcess::UNIT_MEGABYTE, 2},
      {status, "VmRSS:", CProcess::UNIT_BYTE, 2048 * 1024}, {status, "VmLib:", CProcess::UNIT_KILOBYTE, 99},
      {status, "VmSwap:", CProcess::UNIT_KILOBYTE, 99}, {status + "x", "VmRSS:", CProcess::UNIT_KILOBYTE, 99}};
  for (const auto& c : cases) {
    unsigned long value = 99;
    EXPECT_EQ(c.expected != 99, CProcess::GetMemorySpecificInfoFromFile(c.path.c_str(), &value, c.name, c.unit));
    EXPECT_EQ(c.expected, value) << c.path << " " << c.name << " " << c.unit;
  }
  unsigned long rss = 0;  // the own process, through /proc
  EXPECT_TRUE(CProcess::GetProcessMemorySpecificInfo(getpid(), &rss, "VmRSS:", CProcess::UNIT_KILOBYTE));
  EXPECT_GT(rss, 0u);
}

// Nothing in the program waits for or kills a process; this pins the rules.
TEST(CProcessTest, WaitForExitGivesTheExitStatusOnlyForAChildThatExited) {
  struct { int exitStatus; bool success; unsigned code; } cases[] = {{0, true, 0}, {3, false, 3}, {-1, false, ~0u}};
  for (const auto& c : cases) {  // -1: killed by a signal
    pid_t child = fork();
    if (child == 0) {
      if (c.exitStatus >= 0) _exit(c.exitStatus);
      for (;;) pause();
    }
    EXPECT_EQ(c.exitStatus < 0, c.exitStatus < 0 && CProcess::TerminateProcess(child, 0));
    unsigned code = 7;
    EXPECT_EQ(c.success, CProcess::WaitForExit(child, code, 0)) << c.exitStatus;
    EXPECT_EQ(c.code, code) << c.exitStatus;
    EXPECT_FALSE(CProcess::WaitForExit(child, code, 0)) << "no longer a child";
  }
}
