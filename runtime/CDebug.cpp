// Core of CDebug: construction, start, the Print family, one record and the
// log file. Configuration, ring buffer and log header are in CDebugConfig,
// CDebugRingBuffer and CDebugHeader.
#include "runtime/CDebug.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "runtime/CProcess.h"
#include "runtime/LocalTime.h"
#include "runtime/ThreadId.h"

CDebug g_Debug("Zentrix");

namespace {

constexpr uint64_t kInitReserve = 0x100000;

// Start of the message: leading newlines are absorbed unless there is
// nothing else.
const char* MessageFormat(const char* fmt) {
  const char* p = fmt;
  while (*p == '\n') ++p;
  return *p == '\0' ? fmt : p;
}

}  // namespace

CDebug::CDebug() { ClassInit(); }

CDebug::CDebug(const char* name) {
  ClassInit();
  if (name != nullptr && *name != '\0' && !Init(name)) {
    syslog(LOG_ERR, "ERROR: Error during initialization of the CDebug instance.\n");
  }
}

CDebug::~CDebug() {
  {
    std::lock_guard<CCriticalSection> guard(m_Lock);
    m_TraceLevel = 0;
    m_SavedTraceLevel = 0;
    m_Enabled = false;
    m_DynamicUpdateInterval = 0;
    m_TraceTarget = kTargetNone;
    CloseSinks();
  }
  delete[] m_InstanceName;
  m_InstanceName = nullptr;
}

void CDebug::CloseSinks() {
  if (m_RingMapping != nullptr) munmap(m_RingMapping, m_RingSize);
  m_RingMapping = nullptr;
  if (m_RingFd >= 0) close(m_RingFd);
  m_RingFd = -1;
  if (m_LogFile != nullptr) fclose(m_LogFile);
  m_LogFile = nullptr;
}

void CDebug::ClassInit() {
  m_TraceLevel = 0;
  m_SavedTraceLevel = 0;
  m_FileDebugLevel = 0;
  m_TraceFlags = 0;
  m_Enabled = false;
  m_DynamicUpdateInterval = 0;
  m_LastCheck = 0;
  m_ProcessId = 0;
  m_Argc = 0;
  m_Argv = nullptr;
  m_StartTime[0] = '\0';
  m_TraceTarget = kTargetNone;
  m_ApplInitDone = 0;
  m_RingFd = -1;
  m_RingFactor = 0;
  m_RingWeight = 0;
  m_RingSize = 0;
  m_RingWrapBackOffset = 0;
  m_RingWriteOffset = 0;
  m_RingStartOfInitOffset = 0;
  m_RecordBuffer[0] = '\0';
  m_RingMapping = nullptr;
  m_RingWrapCount = 0;
  m_RingPath[0] = '\0';
  m_NoHeaderFlag = 0;
  m_FileRingFactor = kNotGiven;
  m_FileRingWeight = kNotGiven;
  m_FileRingDirectory[0] = '\0';
  m_FileNoHeader = kNotGiven;
  m_FileDynamicUpdate = 0;
  m_FileMemoryTraces = kNotGiven;
  m_TraceDirectory[0] = '\0';
  CopyText(m_Trailer, sizeof m_Trailer, "## TRACE-END ##\n");
  m_TrailerLength = static_cast<unsigned>(strlen(m_Trailer));
  m_LogPath[0] = '\0';
  m_LogFile = nullptr;
  m_LogInitEndPosition = 0;
  m_LogMaxSize = kDefaultLogMaxSize;
  m_LogInitEndCount = 0;
  m_LogCurrentCount = 0;
  m_LogWrapCycle = 0;
  m_WritingHeader = false;
}

bool CDebug::Init(const char* name) {
  std::lock_guard<CCriticalSection> guard(m_Lock);
  try {
    if (name != nullptr && *name != '\0') {
      size_t length = strlen(name);
      char* copy = new char[length + 1];
      memcpy(copy, name, length + 1);
      delete[] m_InstanceName;
      m_InstanceName = copy;
    }
    const char* instance = m_InstanceName != nullptr ? m_InstanceName : "";

    m_ProcessId = static_cast<int>(getpid());
    time_t now = time(nullptr);
    struct tm local;
    if (localtime_r(&now, &local) == nullptr || asctime_r(&local, m_StartTime) == nullptr) {
      CopyText(m_StartTime, sizeof m_StartTime, "\nwww mmm dd hh:mm:ss yyyy");
    }

    CaptureEnvironment();
    ReadDebugConfig(instance);
    m_Enabled = m_TraceLevel != 0;

    // The log file is created on every run, traced or not, so a support
    // engineer always finds one.
    char lowerName[kMaxPath];
    CopyText(lowerName, sizeof lowerName, instance);
    StringToLower(lowerName);
    FormatTracePath(m_LogPath, lowerName, "");
    if (m_LogFile != nullptr) fclose(m_LogFile);
    m_LogFile = nullptr;
    int logFd = OpenUnshared(m_LogPath, 0666);
    if (logFd >= 0 && (m_LogFile = fdopen(logFd, "w+")) == nullptr) close(logFd);
    if (m_LogFile == nullptr) {
      syslog(LOG_ERR, "ERROR: Error during opening %s --> proceed without it\n", m_LogPath);
    }
    m_LogInitEndPosition = 0;
    m_LogInitEndCount = m_LogCurrentCount = m_LogWrapCycle = 0;

    if (!m_Enabled) return true;
    ApplyWeightOverride(instance);
    StartRingBuffer(lowerName);
    m_Enabled = m_TraceLevel != 0;
  } catch (...) {
    // Tracing is never worth failing the program for.
  }
  return true;
}

void CDebug::Print(unsigned level, const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  PrintV(level, fmt, args);
  va_end(args);
}

void CDebug::PrintV(unsigned level, const char* fmt, va_list args) {
  if (fmt == nullptr) return;
  unsigned interval = m_DynamicUpdateInterval.load(std::memory_order_relaxed);
  if (interval != 0) {
    std::lock_guard<CCriticalSection> guard(m_Lock);
    time_t now = m_Clock(nullptr);
    if (now >= m_LastCheck + static_cast<time_t>(interval) || now < m_LastCheck) {
      m_LastCheck = now;
      CheckDynamicUpdate();
    }
  }
  if (level > m_TraceLevel.load(std::memory_order_relaxed)) return;
  std::lock_guard<CCriticalSection> guard(m_Lock);
  WriteToTarget(kTargetNone, nullptr, fmt, args);
}

void CDebug::PrintAlways(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  PrintAlwaysV(fmt, args, nullptr);
  va_end(args);
}

void CDebug::PrintAlways(unsigned /*level*/, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  PrintAlwaysV(fmt, args, nullptr);
  va_end(args);
}

void CDebug::PrintAlwaysV(const char* fmt, va_list args, const char* client) {
  if (fmt == nullptr) return;
  std::lock_guard<CCriticalSection> guard(m_Lock);
  try {
    if (m_TraceTarget == kTargetRingBuffer) {
      va_list copy;
      va_copy(copy, args);
      TraceToRingBuffer(client, fmt, copy);
      va_end(copy);
    }
    TraceToLogFile(client, fmt, args);
  } catch (...) {
  }
}

void CDebug::ClientPrintV(const char* fmt, va_list args, const char* client) {
  if (fmt == nullptr) return;
  std::lock_guard<CCriticalSection> guard(m_Lock);
  WriteToTarget(kTargetNone, client, fmt, args);
}

void CDebug::WriteToTarget(unsigned target, const char* client, const char* fmt, va_list args) {
  if (target == kTargetNone) target = m_TraceTarget;
  try {
    if (target == kTargetRingBuffer) {
      TraceToRingBuffer(client, fmt, args);
    } else if (target == kTargetLogFile) {
      TraceToLogFile(client, fmt, args);
    }
  } catch (...) {
    // A trace line is not worth an exception in the caller.
  }
}

void CDebug::PrintIt(unsigned target, const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  WriteToTarget(target, nullptr, fmt, args);
  va_end(args);
}

void CDebug::PrintToLogFile(const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  TraceToLogFile(nullptr, fmt, args);
  va_end(args);
}

size_t CDebug::SetEntryHeader(char* buf, size_t size, const char* client) const {
  if (buf == nullptr || size == 0) return 0;
  struct timeval now;
  gettimeofday(&now, nullptr);
  char when[40];
  if (FormatLocalTime(when, sizeof when, "%F %H:%M:%S", now.tv_sec,
                      static_cast<int>(now.tv_usec / 1000)) == 0) {
    CopyText(when, sizeof when, "yyyy-mm-dd hh:mm:ss.mmm");
  }
  const char* label = client != nullptr ? client : (m_InstanceName != nullptr ? m_InstanceName : "");
  int n;
  if (m_FileMemoryTraces != 0) {
    unsigned long rss = 0;
    CProcess::GetProcessMemorySpecificInfo(static_cast<unsigned>(m_ProcessId), &rss, "VmRSS:",
                                           CProcess::UNIT_KILOBYTE);
    n = snprintf(buf, size, "%s [%08X] %8zu %s !%-13s", when, ThreadId(), static_cast<size_t>(rss),
                 "KB", label);
  } else {
    n = snprintf(buf, size, "%s [%08X] %-13s", when, ThreadId(), label);
  }
  if (n < 0) {
    buf[0] = '\0';
    return 0;
  }
  return static_cast<size_t>(n) < size ? static_cast<size_t>(n) : size - 1;
}

size_t CDebug::FormatRecord(char* buf, size_t capacity, const char* client, const char* fmt,
                            va_list args, int* fullMessage) const {
  size_t header = SetEntryHeader(buf, kMaxEntryHeader, client);
  int n = vsnprintf(buf + header, capacity + 1, MessageFormat(fmt), args);
  if (n < 0) {
    buf[header] = '\0';
    n = 0;
  }
  if (fullMessage != nullptr) *fullMessage = n;
  return header + (static_cast<size_t>(n) < capacity ? static_cast<size_t>(n) : capacity);
}

size_t CDebug::EnsureNewline(char* record, size_t length) {
  if (length == 0 || record[length - 1] != '\n') record[length++] = '\n';
  record[length] = '\0';
  return length;
}

void CDebug::TraceToLogFile(const char* client, const char* fmt, va_list args) {
  if (m_LogFile == nullptr || fmt == nullptr) return;
  size_t length =
      EnsureNewline(m_RecordBuffer, FormatRecord(m_RecordBuffer, kMaxMessage, client, fmt, args, nullptr));
  size_t written = fwrite(m_RecordBuffer, 1, length, m_LogFile);
  fflush(m_LogFile);
  m_LogCurrentCount += static_cast<unsigned>(written);
  if (m_LogCurrentCount <= m_LogMaxSize) return;

  // Wrap back to the end of the start phase; what lies beyond is left to be
  // overwritten, the file is never truncated.
  if (fseek(m_LogFile, m_LogInitEndPosition, SEEK_SET) != 0) {
    syslog(LOG_ERR, "ERROR: fseek failed for %s (errno=%d) --> rewind it\n", m_LogPath, errno);
    rewind(m_LogFile);
  }
  ++m_LogWrapCycle;
  m_LogCurrentCount = m_LogInitEndCount;
  int n = fprintf(m_LogFile,
                  "------ WRAP ----- Cycle=%d, CntInitEnd=%u, CurrentByteCnt=%u (MaxCnt=%u)\n",
                  static_cast<int>(m_LogWrapCycle), m_LogInitEndCount, m_LogInitEndCount,
                  m_LogMaxSize);
  fflush(m_LogFile);
  if (n > 0) m_LogCurrentCount += static_cast<unsigned>(n);
}

// Opens path for reading and writing and empties it, but only when no other
// process holds it. Two runs may share a trace directory (a cron job and an
// administrator): emptying the ring file under another run's mapping kills
// that run with SIGBUS, and emptying the log file under its offset leaves a
// run of NUL bytes. The lock lasts as long as the descriptor.
int CDebug::OpenUnshared(const char* path, mode_t mode) {
  int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, mode);
  if (fd < 0) return -1;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 || ftruncate(fd, 0) != 0) {
    int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

// "<trace directory>/log.<name><suffix>", cut at kMaxPath - 1 characters.
void CDebug::FormatTracePath(char (&out)[kMaxPath], const char* lowerName,
                             const char* suffix) const {
  int n = snprintf(out, sizeof out, "%s/log.%s%s", m_TraceDirectory, lowerName, suffix);
  if (n < 0) out[0] = '\0';
}

void CDebug::CopyText(char* out, size_t size, const char* text) {
  snprintf(out, size, "%s", text != nullptr ? text : "");
}

void CDebug::SetMainParams(int argc, char** argv) {
  std::lock_guard<CCriticalSection> guard(m_Lock);
  m_Argc = argc;
  m_Argv = argv;
  try {
    WriteArguments(kTargetLogFile);
    if (m_TraceTarget == kTargetRingBuffer) WriteArguments(kTargetRingBuffer);
  } catch (...) {
  }
}

void CDebug::SetApplInitDone() {
  std::lock_guard<CCriticalSection> guard(m_Lock);
  if (m_LogFile != nullptr) {
    long position = ftell(m_LogFile);
    if (position >= 0) {
      m_LogInitEndPosition = position;
      m_LogInitEndCount = static_cast<unsigned>(position);
    }
  }
  // Keep the start-up records in the ring only when a good part of it is
  // left for the rest of the run.
  if (m_TraceTarget == kTargetRingBuffer && m_RingWrapCount == 0 &&
      m_RingSize > m_RingWriteOffset && m_RingSize - m_RingWriteOffset > kInitReserve) {
    PrintIt(kTargetRingBuffer, "\n### End of initialization. ###");
    m_RingWrapBackOffset = m_RingWriteOffset;
    m_ApplInitDone = 1;
  }
}

void CDebug::SetTarget(unsigned target) {
  std::lock_guard<CCriticalSection> guard(m_Lock);
  m_TraceTarget = target;
}

bool CDebug::ForceMaxDebug(bool on) {
  std::lock_guard<CCriticalSection> guard(m_Lock);
  if (on) {
    m_TraceLevel = m_SavedTraceLevel;
    m_Enabled = true;
  } else {
    m_TraceLevel = 0;
    m_Enabled = false;
  }
  return true;
}

char* CDebug::StringToLower(char* text) {
  if (text == nullptr) return text;
  for (char* p = text; *p != '\0'; ++p) *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
  return text;
}

void CDebug::BuildAppVarName(char* buf, size_t size, const char* app) {
  if (buf == nullptr || size == 0 || app == nullptr || *app == '\0') return;
  size_t used = strnlen(buf, size - 1);
  if (used < size - 1) buf[used++] = '_';
  for (const char* p = app; *p != '\0' && used < size - 1; ++p) {
    buf[used++] = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
  }
  buf[used] = '\0';
}
