#include "runtime/CProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kStatusBufferSize = 8192;

// Reads a whole (small) /proc file into buf; returns the length, -1 on error.
ssize_t ReadSmallFile(const char* path, char* buf, size_t size) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  size_t used = 0;
  while (used + 1 < size) {
    ssize_t n = read(fd, buf + used, size - 1 - used);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    used += static_cast<size_t>(n);
  }
  close(fd);
  buf[used] = '\0';
  return static_cast<ssize_t>(used);
}

// Finds the line of text that begins with name and parses its number.
bool FindFigure(const char* text, const std::string& name, unsigned long* out) {
  if (name.empty()) return false;
  const char* line = text;
  while (*line != '\0') {
    if (strncmp(line, name.c_str(), name.size()) == 0) {
      const char* digits = line + name.size();
      while (*digits == ' ' || *digits == '\t') ++digits;
      if (*digits < '0' || *digits > '9') return false;
      *out = strtoul(digits, nullptr, 10);
      return true;
    }
    const char* next = strchr(line, '\n');
    if (next == nullptr) break;
    line = next + 1;
  }
  return false;
}

unsigned long ConvertFromKilobytes(unsigned long kb, CProcess::unit unit) {
  switch (unit) {
    case CProcess::UNIT_BYTE: return kb * 1024UL;
    case CProcess::UNIT_MEGABYTE: return kb / 1024UL;
    case CProcess::UNIT_KILOBYTE: break;
  }
  return kb;
}

void StatusPath(unsigned pid, char* buf, size_t size) {
  snprintf(buf, size, "/proc/%u/status", pid);
}

}  // namespace

bool CProcess::GetCurrentDir(std::string& dir) {
  char buf[4096];
  if (getcwd(buf, sizeof buf) == nullptr || buf[0] == '\0') return false;
  dir = buf;
  return true;
}

std::string get_current_directory() {
  std::string dir;
  CProcess::GetCurrentDir(dir);
  return dir;
}

bool CProcess::GetMemorySpecificInfoFromFile(const char* statusPath, unsigned long* value,
                                             const std::string& name, unit unit) {
  if (statusPath == nullptr || value == nullptr) return false;
  char text[kStatusBufferSize];
  if (ReadSmallFile(statusPath, text, sizeof text) < 0) return false;
  unsigned long kb = 0;
  if (!FindFigure(text, name, &kb)) return false;
  *value = ConvertFromKilobytes(kb, unit);
  return true;
}

bool CProcess::GetProcessMemorySpecificInfo(unsigned pid, unsigned long* value, std::string name,
                                            unit unit) {
  char path[64];
  StatusPath(pid, path, sizeof path);
  return GetMemorySpecificInfoFromFile(path, value, name, unit);
}

bool CProcess::GetProcessMemoryInfo(unsigned pid, unsigned long* peak, unsigned long* size,
                                    unsigned long* lib, unsigned long* swap, unsigned long* rss) {
  char path[64];
  StatusPath(pid, path, sizeof path);
  char text[kStatusBufferSize];
  if (ReadSmallFile(path, text, sizeof text) < 0) return false;
  struct Figure {
    const char* name;
    unsigned long* out;
  } figures[] = {{"VmPeak:", peak}, {"VmSize:", size}, {"VmLib:", lib}, {"VmSwap:", swap},
                 {"VmRSS:", rss}};
  bool all = true;
  for (const Figure& f : figures) {
    if (f.out == nullptr) continue;
    if (!FindFigure(text, f.name, f.out)) all = false;
  }
  return all;
}

bool CProcess::WaitForExit(unsigned pid, unsigned& exitCode, unsigned /*timeout*/) {
  exitCode = ~0u;
  int status = 0;
  pid_t ended;
  do {
    ended = waitpid(static_cast<pid_t>(pid), &status, 0);
  } while (ended < 0 && errno == EINTR);
  if (ended != static_cast<pid_t>(pid) || !WIFEXITED(status)) return false;
  exitCode = static_cast<unsigned>(WEXITSTATUS(status));
  return exitCode == 0;
}

bool CProcess::TerminateProcess(unsigned pid, unsigned /*exitCode*/) {
  return kill(static_cast<pid_t>(pid), SIGKILL) == 0;
}
