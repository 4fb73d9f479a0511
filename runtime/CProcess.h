#pragma once

#include <string>

// Process helpers. All members are static and keep no state.
class CProcess {
 public:
  // Unit of a memory figure; /proc gives kilobytes.
  enum unit { UNIT_BYTE = 0, UNIT_KILOBYTE = 1, UNIT_MEGABYTE = 2 };

  // The working directory; false (dir unchanged) when it cannot be read.
  static bool GetCurrentDir(std::string& dir);

  // One figure of /proc/<pid>/status, e.g. name "VmRSS:". False, value
  // unchanged, when the file or the line is missing.
  static bool GetProcessMemorySpecificInfo(unsigned pid, unsigned long* value, std::string name,
                                           unit unit);
  // The same figure from a status file given by path.
  static bool GetMemorySpecificInfoFromFile(const char* statusPath, unsigned long* value,
                                            const std::string& name, unit unit);
  // VmPeak, VmSize, VmLib, VmSwap and VmRSS in kilobytes, read at once. A
  // figure missing from the file is left unchanged; true when all were found.
  static bool GetProcessMemoryInfo(unsigned pid, unsigned long* peak, unsigned long* size,
                                   unsigned long* lib, unsigned long* swap, unsigned long* rss);

  // Waits for child pid. exitCode is all ones unless the child exited
  // normally; true only for exit status 0. The timeout is not honoured.
  static bool WaitForExit(unsigned pid, unsigned& exitCode, unsigned timeout);
  // SIGKILL; true when the signal was sent.
  static bool TerminateProcess(unsigned pid, unsigned exitCode);
};

// The working directory, "" when it cannot be read.
std::string get_current_directory();
