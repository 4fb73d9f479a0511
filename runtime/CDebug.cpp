#include "runtime/CDebug.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/CDirectoryList.h"
#include "runtime/CProcess.h"
#include "runtime/CSystemRoot.h"

CDebug g_Debug("Zentrix");

namespace {

// Shown in the log header, so a trace tells which environment it ran in.
const char* const kEnvironmentNames[] = {
    "LD_LIBRARY_PATH", "OV_SYSTEM", "OV_OS", "OV_OS_MAJOR", "OV_OS_MINOR", "OV_VVOS",
    "OV_RELEASE", "OV_VENDOR", "OV_HOSTNAME", "OV_HOSTOSREVMAJOR", "OV_HOSTOSREVMINOR",
    "OV_SYSNAME", "OV_VERSION", "OV_NICKNAME", "OV_HWPLATFORM", "OV_RUNNINGONVM",
    "OV_RUNNINGONPAN", "OV_VMREL", "OV_ARCH", "OV_REPO", "OV_RAID_EXISTS", "OV_RAID_READY",
    "OV_RAID_VERSION", "OV_INSTALL_DATE", "OV_USE_SG_IO_HDR_T", "OV_AGENT_X_SOCKET",
    "OV_OMAD_REPLY_TIME", "OV_DAEMON_COREFILE_LIMIT", "OV_VME_WAIT_TIME_FOR_VMSERVER",
    "OV_SCS_PROVIDER_TRACE", "OV_SCS_NOSIGNAL", "OV_LOG_DYNAMIC_UPDATE", "OV_SCS_DEBUG_LEVEL",
    "OV_LOG_FILE_DIR", "OV_LOG_FILE_MAX_SIZE", "OV_LOG_RINGBUF_DIR", "OV_LOG_DEBUG_LEVEL",
    "OV_LOG_RINGBUF_WEIGHT", "OV_LOG_NOHDR_TOSDTERR", "QRT_OV_HOME", "QRT_SYSLOG_FIFO",
    nullptr};

const char* const kConfigurationNames[] = {
    "AgentPermission", "AgentShut", "ShutdownDelay", "UserGroup", "ScanTapeDevices",
    "TraceFileLimit", "NoAccountCheck", "InventoryRescan", "CDPollInterval",
    "AgentsToBeStarted", "WaitForOmadSockets", "WaitForOmadTerm", "InvAgtPollNetUtilization",
    nullptr};

constexpr char kTrailer[] = "## TRACE-END ##\n";
constexpr char kWeightVariable[] = "OV_LOG_RINGBUF_WEIGHT";
constexpr char kTooBig[] = "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n";
constexpr char kNoMemory[] = "\n## ERROR: No memory: Output Truncated!\n";
constexpr char kNotSet[] = "NotSet";
constexpr size_t kRingBlock = 1024;
constexpr uint64_t kInitReserve = 0x100000;
// Room a long ring record needs besides its message: header, newline, NUL.
constexpr size_t kLongRecordExtra = 145;
constexpr size_t kPrefillChunkBlocks = 64;

// Decimal, as the environment has always been read (so "0x3" is 0).
bool EnvironmentUnsigned(const char* name, unsigned& value) {
  const char* text = getenv(name);
  if (text == nullptr) return false;
  value = static_cast<unsigned>(strtol(text, nullptr, 10));
  return true;
}

void CopyText(char* out, size_t size, const char* text) {
  snprintf(out, size, "%s", text != nullptr ? text : "");
}

// "<directory>/log.<name><suffix>", cut at kMaxPath - 1 characters.
void FormatTracePath(char (&out)[CDebug::kMaxPath], const char* directory, const char* name,
                     const char* suffix) {
  int n = snprintf(out, sizeof out, "%s/log.%s%s", directory, name, suffix);
  if (n < 0) out[0] = '\0';
}

// Start of the message: leading newlines are absorbed unless there is
// nothing else.
const char* MessageFormat(const char* fmt) {
  const char* p = fmt;
  while (*p == '\n') ++p;
  return *p == '\0' ? fmt : p;
}

size_t EnsureNewline(char* record, size_t length) {
  if (length == 0 || record[length - 1] != '\n') record[length++] = '\n';
  record[length] = '\0';
  return length;
}

uint64_t OffsetAfterHeader(uint64_t offset) {
  return (offset + 2 * kRingBlock) & ~static_cast<uint64_t>(kRingBlock - 1);
}

// Opens path for reading and writing and empties it, but only when no other
// process holds it. Two runs may share a trace directory (a cron job and an
// administrator): emptying the ring file under another run's mapping kills
// that run with SIGBUS, and emptying the log file under its offset leaves a
// run of NUL bytes. The lock lasts as long as the descriptor.
int OpenUnshared(const char* path, mode_t mode) {
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
    CCriticalSectionGuard guard(m_Lock);
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
  CopyText(m_Trailer, sizeof m_Trailer, kTrailer);
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
  CCriticalSectionGuard guard(m_Lock);
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

    for (size_t i = 0; i < kEnvironmentCount; ++i) {
      const char* value = getenv(kEnvironmentNames[i]);
      m_Environment[i].set = value != nullptr;
      m_Environment[i].value = value != nullptr ? value : "";
    }
    for (size_t i = 0; i < kConfigurationCount; ++i) {
      const char* value = getenv(kConfigurationNames[i]);
      m_Configuration[i].set = value != nullptr;
      m_Configuration[i].value = value != nullptr ? value : "";
    }

    ReadDebugConfig(instance);
    m_Enabled = m_TraceLevel != 0;

    // The log file is created on every run, traced or not, so a support
    // engineer always finds one.
    char lowerName[kMaxPath];
    CopyText(lowerName, sizeof lowerName, instance);
    StringToLower(lowerName);
    FormatTracePath(m_LogPath, m_TraceDirectory, lowerName, "");
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

    char weightVariable[48];
    CopyText(weightVariable, sizeof weightVariable, kWeightVariable);
    BuildAppVarName(weightVariable, sizeof weightVariable, instance);
    EnvironmentUnsigned(weightVariable, m_RingWeight);

    long pageSize = sysconf(_SC_PAGESIZE);
    if (pageSize <= 0) pageSize = 4096;
    if (m_RingFactor > 2) m_RingFactor = 2;
    m_RingSize = static_cast<uint64_t>(m_RingFactor) * m_RingWeight *
                 static_cast<uint64_t>(pageSize) * 256u;
    if (m_RingSize == 0) return true;

    FormatTracePath(m_RingPath, m_TraceDirectory, lowerName, "_a");
    if (!InitRingBuffer(m_RingPath, m_RingSize)) {
      m_Enabled = false;
      m_TraceTarget = kTargetNone;
      m_TraceLevel = 0;
      m_SavedTraceLevel = 0;
    }
    m_Enabled = m_TraceLevel != 0;
  } catch (...) {
    // Tracing is never worth failing the program for.
  }
  return true;
}

bool CDebug::ReadDebugConfig(const char* name) {
  const std::string configDirectory = CSystemRoot::Path(kConfigDirectory);
  std::vector<std::string> files;
  bool listed = CDirectoryList::ListIniFiles(configDirectory.c_str(), files);
  // A configuration directory without any file means "leave tracing alone":
  // not even the environment is applied. Long-standing behaviour the suite's
  // installation scripts rely on.
  if (listed && files.empty()) return true;

  m_FileRingFactor = kNotGiven;
  m_FileRingWeight = kNotGiven;
  m_FileNoHeader = kNotGiven;
  m_FileMemoryTraces = kNotGiven;
  m_FileRingDirectory[0] = '\0';

  if (m_GlobalSettings.OpenSectionInIniFile(kGlobalSection, kGlobalFile,
                                            configDirectory.c_str())) {
    m_GlobalSettings.ReadUnsigned("DynamicUpdate", m_FileDynamicUpdate);
  }
  unsigned interval = m_FileDynamicUpdate;
  EnvironmentUnsigned("OV_LOG_DYNAMIC_UPDATE", interval);
  m_DynamicUpdateInterval = interval;

  const char* section = name != nullptr ? name : "";
  for (const std::string& file : files) {
    if (m_ApplSettings.OpenSectionInIniFile(section, file.c_str(), configDirectory.c_str())) {
      m_ApplSettings.ReadText("RingBufferDirectory", m_FileRingDirectory,
                              sizeof m_FileRingDirectory, sizeof m_FileRingDirectory - 1);
      m_ApplSettings.ReadUnsigned("FileDebugLevel", m_FileDebugLevel);
      m_ApplSettings.ReadUnsigned("TraceFlags", m_TraceFlags);
      m_ApplSettings.ReadUnsigned("RingBufferSizeFactor", m_FileRingFactor);
      m_ApplSettings.ReadUnsigned("RingBufferSizeWeight", m_FileRingWeight);
      m_ApplSettings.ReadUnsigned("NoHeaderToStderr", m_FileNoHeader);
      m_ApplSettings.ReadUnsigned("MemoryTracesFlag", m_FileMemoryTraces);
      break;
    }
  }

  const std::string defaultDirectory = CSystemRoot::Path(kDefaultTraceDirectory);
  const char* fileDirectory = m_FileRingDirectory[0] != '\0' ? m_FileRingDirectory : nullptr;
  // Two settings used to choose the directory; the ring buffer's has always
  // won, so the log file one is read but cannot have any effect.
  const char* directory = getenv("OV_LOG_FILE_DIR");
  if (directory == nullptr) directory = fileDirectory;
  if (directory == nullptr) directory = defaultDirectory.c_str();
  CopyText(m_TraceDirectory, sizeof m_TraceDirectory, directory);
  directory = getenv("OV_LOG_RINGBUF_DIR");
  if (directory == nullptr) directory = fileDirectory;
  if (directory == nullptr) directory = defaultDirectory.c_str();
  CopyText(m_TraceDirectory, sizeof m_TraceDirectory, directory);

  EnvironmentUnsigned("OV_LOG_FILE_MAX_SIZE", m_LogMaxSize);

  unsigned level = m_FileDebugLevel;
  EnvironmentUnsigned("OV_LOG_DEBUG_LEVEL", level);
  m_TraceLevel = level;

  m_RingFactor = m_FileRingFactor != kNotGiven ? m_FileRingFactor : 0;
  EnvironmentUnsigned("TraceFileLimit", m_RingFactor);
  m_RingWeight = m_FileRingWeight != kNotGiven ? m_FileRingWeight : 0;
  EnvironmentUnsigned("OV_LOG_RINGBUF_WEIGHT", m_RingWeight);

  m_NoHeaderFlag = m_FileNoHeader != kNotGiven ? m_FileNoHeader : 1;
  EnvironmentUnsigned("OV_LOG_NOHDR_TOSDTERR", m_NoHeaderFlag);

  m_SavedTraceLevel = m_TraceLevel;
  return true;
}

void CDebug::CheckDynamicUpdate() {
  struct stat info;
  if (!m_GlobalSettings.Path().empty()) {
    if (stat(m_GlobalSettings.Path().c_str(), &info) != 0) {
      m_GlobalSettings.CloseSectionInIniFile();
    } else if (info.st_mtime > m_GlobalSettings.ModificationTime()) {
      m_GlobalSettings.SetFileState(info.st_size, info.st_mtime);
      if (m_GlobalSettings.OpenSectionInIniFile(kGlobalSection, nullptr, nullptr) &&
          m_GlobalSettings.ReadUnsigned("DynamicUpdate", m_FileDynamicUpdate)) {
        m_DynamicUpdateInterval = m_FileDynamicUpdate;
      }
    }
  }
  if (!m_ApplSettings.Path().empty()) {
    if (stat(m_ApplSettings.Path().c_str(), &info) != 0) {
      m_ApplSettings.CloseSectionInIniFile();
    } else if (info.st_mtime > m_ApplSettings.ModificationTime()) {
      m_ApplSettings.SetFileState(info.st_size, info.st_mtime);
      const char* section = m_InstanceName != nullptr ? m_InstanceName : "";
      if (m_ApplSettings.OpenSectionInIniFile(section, nullptr, nullptr)) {
        // The file now wins over the environment for the rest of the run.
        if (m_ApplSettings.ReadUnsigned("FileDebugLevel", m_FileDebugLevel)) {
          m_TraceLevel = m_FileDebugLevel;
          m_SavedTraceLevel = m_FileDebugLevel;
          m_Enabled = m_FileDebugLevel != 0;
        }
        m_ApplSettings.ReadUnsigned("TraceFlags", m_TraceFlags);
        m_ApplSettings.ReadUnsigned("MemoryTracesFlag", m_FileMemoryTraces);
      }
    }
  }
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
    CCriticalSectionGuard guard(m_Lock);
    time_t now = m_Clock(nullptr);
    if (now >= m_LastCheck + static_cast<time_t>(interval) || now < m_LastCheck) {
      m_LastCheck = now;
      CheckDynamicUpdate();
    }
  }
  if (level > m_TraceLevel.load(std::memory_order_relaxed)) return;
  CCriticalSectionGuard guard(m_Lock);
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
  CCriticalSectionGuard guard(m_Lock);
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
  CCriticalSectionGuard guard(m_Lock);
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
  time_t seconds = now.tv_sec;
  struct tm local;
  char stamp[22];
  char when[40];
  if (localtime_r(&seconds, &local) != nullptr &&
      strftime(stamp, sizeof stamp, "%F %H:%M:%S", &local) != 0) {
    snprintf(when, sizeof when, "%s.%03d", stamp, static_cast<int>(now.tv_usec / 1000));
  } else {
    CopyText(when, sizeof when, "yyyy-mm-dd hh:mm:ss.mmm");
  }
  const char* label = client != nullptr ? client : (m_InstanceName != nullptr ? m_InstanceName : "");
  unsigned thread = static_cast<unsigned>(pthread_self());
  int n;
  if (m_FileMemoryTraces != 0) {
    unsigned long rss = 0;
    CProcess::GetProcessMemorySpecificInfo(static_cast<unsigned>(m_ProcessId), &rss, "VmRSS:",
                                           CProcess::UNIT_KILOBYTE);
    n = snprintf(buf, size, "%s [%08X] %8zu %s !%-13s", when, thread, static_cast<size_t>(rss),
                 "KB", label);
  } else {
    n = snprintf(buf, size, "%s [%08X] %-13s", when, thread, label);
  }
  if (n < 0) {
    buf[0] = '\0';
    return 0;
  }
  return static_cast<size_t>(n) < size ? static_cast<size_t>(n) : size - 1;
}

size_t CDebug::FormatRecord(char* buf, const char* client, const char* fmt, va_list args,
                            int* fullMessage) const {
  size_t header = SetEntryHeader(buf, kMaxEntryHeader, client);
  int n = vsnprintf(buf + header, kMaxMessage + 1, MessageFormat(fmt), args);
  if (n < 0) {
    buf[header] = '\0';
    n = 0;
  }
  if (fullMessage != nullptr) *fullMessage = n;
  return header + (static_cast<size_t>(n) < kMaxMessage ? static_cast<size_t>(n) : kMaxMessage);
}

void CDebug::TraceToLogFile(const char* client, const char* fmt, va_list args) {
  if (m_LogFile == nullptr || fmt == nullptr) return;
  size_t length = EnsureNewline(m_RecordBuffer, FormatRecord(m_RecordBuffer, client, fmt, args, nullptr));
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

void CDebug::TraceToRingBuffer(const char* client, const char* fmt, va_list args) {
  if (fmt == nullptr || m_RingMapping == nullptr) return;
  va_list again;
  va_copy(again, args);
  int fullMessage = 0;
  size_t length = FormatRecord(m_RecordBuffer, client, fmt, args, &fullMessage);
  char* record = m_RecordBuffer;
  char* longRecord = nullptr;
  if (static_cast<size_t>(fullMessage) > kMaxMessage) {
    const char* notice = kTooBig;
    if (static_cast<uint64_t>(fullMessage) <= m_RingSize / 10) {
      longRecord = static_cast<char*>(malloc(static_cast<size_t>(fullMessage) + kLongRecordExtra));
      notice = kNoMemory;
    }
    if (longRecord != nullptr) {
      size_t header = SetEntryHeader(longRecord, kMaxEntryHeader, client);
      int n = vsnprintf(longRecord + header, static_cast<size_t>(fullMessage) + 1,
                        MessageFormat(fmt), again);
      length = header + (n > 0 ? static_cast<size_t>(n) : 0);
      record = longRecord;
    } else {
      // The message was cut at kMaxMessage characters; say so in the trace.
      memcpy(m_RecordBuffer + length, notice, strlen(notice) + 1);
      length += strlen(notice);
    }
  }
  va_end(again);
  length = EnsureNewline(record, length);
  WriteRingRecord(record, length);
  free(longRecord);
}

void CDebug::WriteRingRecord(const char* record, size_t length) {
  if (length + m_TrailerLength > m_RingSize) return;
  // The header rewrite of a wrap reuses the record buffer: keep the pending
  // record here.
  char pending[kRecordBufferSize];
  if (m_RingWriteOffset + m_TrailerLength + length > m_RingSize) {
    // A header line that does not fit a (tiny) ring is dropped rather than
    // starting a wrap inside the header.
    if (m_WritingHeader) return;
    if (record == m_RecordBuffer) {
      memcpy(pending, record, length);
      record = pending;
    }
    memset(m_RingMapping + m_RingWriteOffset, '.', m_RingSize - m_RingWriteOffset);
    ++m_RingWrapCount;
    m_RingWriteOffset = 0;
    WriteLogHeader(kTargetRingBuffer);
    SkipAfterHeader(m_RingWrapBackOffset != 0 ? m_RingWrapBackOffset
                                              : OffsetAfterHeader(m_RingWriteOffset));
    if (m_RingWriteOffset + m_TrailerLength + length > m_RingSize) return;
  }
  memcpy(m_RingMapping + m_RingWriteOffset, record, length);
  m_RingWriteOffset += length;
  // The trailer marks the newest end; the next record overwrites it.
  memcpy(m_RingMapping + m_RingWriteOffset, m_Trailer, m_TrailerLength);
}

void CDebug::SkipAfterHeader(uint64_t next) {
  // The header's trailer stays where it is: it ends the header block. A
  // ring too small for the jump goes on right after the header.
  if (next + m_TrailerLength <= m_RingSize) m_RingWriteOffset = next;
}

bool CDebug::InitRingBuffer(const char* path, uint64_t length) {
  if (path == nullptr || length < kRingBlock) return false;
  if (path != m_RingPath) CopyText(m_RingPath, sizeof m_RingPath, path);
  if (m_RingMapping != nullptr) munmap(m_RingMapping, m_RingSize);
  m_RingMapping = nullptr;
  if (m_RingFd >= 0) close(m_RingFd);
  m_RingFd = -1;
  m_RingSize = length;
  int fd = OpenUnshared(path, 0700);
  if (fd < 0) {
    int error = errno;
    char reason[128];
    PrintToLogFile("\n### InitRingBuffer(): open of %s failed (errno=%d; %s) ###", path, error,
                   strerror_r(error, reason, sizeof reason));
    return false;
  }

  // Pre-fill so that the mapping is backed by real blocks and an unused
  // part reads as padding lines.
  std::string block(kRingBlock, '_');
  size_t header = SetEntryHeader(&block[0], kMaxEntryHeader, nullptr);
  block[header] = '_';
  block[kRingBlock - 1] = '\n';
  std::string chunk;
  for (size_t i = 0; i < kPrefillChunkBlocks; ++i) chunk += block;
  for (uint64_t remaining = length; remaining > 0;) {
    uint64_t blocks = (remaining + kRingBlock - 1) / kRingBlock;
    size_t want = static_cast<size_t>(blocks < kPrefillChunkBlocks ? blocks : kPrefillChunkBlocks) *
                  kRingBlock;
    ssize_t n = write(fd, chunk.data(), want);
    if (n != static_cast<ssize_t>(want)) {
      close(fd);
      m_RingFd = -1;
      PrintToLogFile("\n### InitRingBuffer(): (2) write m_InternalDebugBuffer to %s failed ###",
                     path);
      return false;
    }
    remaining = remaining > want ? remaining - want : 0;
  }

  void* mapping = mmap(nullptr, static_cast<size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED,
                       fd, 0);
  if (mapping == MAP_FAILED) {
    int error = errno;
    close(fd);
    char reason[128];
    PrintToLogFile("\n### InitRingBuffer(): mmap of %s failed (errno=%d; %s) ###", path, error,
                   strerror_r(error, reason, sizeof reason));
    return false;
  }
  m_RingFd = fd;
  m_RingMapping = static_cast<uint8_t*>(mapping);
  m_RingWriteOffset = 0;
  m_RingWrapCount = 0;
  m_TraceTarget = kTargetRingBuffer;
  WriteLogHeader(kTargetRingBuffer);
  SkipAfterHeader(OffsetAfterHeader(m_RingWriteOffset));
  m_RingStartOfInitOffset = m_RingWriteOffset;
  PrintIt(kTargetRingBuffer, "\n### Start of initialization. ###");
  return true;
}

void CDebug::WriteLogHeader(unsigned target) {
  m_WritingHeader = true;
  const char* instance = m_InstanceName != nullptr ? m_InstanceName : "";
  if (m_Argc > 0 && m_Argv != nullptr) {
    PrintIt(target, "\n%s Command Line Options:", instance);
    for (int i = 0; i < m_Argc; ++i) {
      PrintIt(target, "\nargv[%d] = \"%s\"", i, m_Argv[i] != nullptr ? m_Argv[i] : "");
    }
  }
  PrintIt(target, "\nOrvana Environment:");
  for (size_t i = 0; i < kEnvironmentCount; ++i) {
    PrintIt(target, "\n%s=%s", kEnvironmentNames[i],
            m_Environment[i].set ? m_Environment[i].value.c_str() : kNotSet);
  }
  char weightVariable[48];
  CopyText(weightVariable, sizeof weightVariable, kWeightVariable);
  BuildAppVarName(weightVariable, sizeof weightVariable, instance);
  const char* weight = getenv(weightVariable);
  PrintIt(target, "\n%s=%s", weightVariable, weight != nullptr ? weight : kNotSet);

  PrintIt(target, "\nOrvana Configuration File:");
  for (size_t i = 0; i < kConfigurationCount; ++i) {
    PrintIt(target, "\n%s=%s", kConfigurationNames[i],
            m_Configuration[i].set ? m_Configuration[i].value.c_str() : kNotSet);
  }

  PrintIt(target, "\nDebug values from ini file :");
  PrintIt(target, "\nDynamicUpdate              : %d", static_cast<int>(m_FileDynamicUpdate));
  PrintIt(target, "\nDebugLevel                 : %d", static_cast<int>(m_FileDebugLevel));
  PrintIt(target, "\nRingBufferSizeFactor       : %d", static_cast<int>(m_FileRingFactor));
  PrintIt(target, "\nRingBufferSizeWeight       : %d", static_cast<int>(m_FileRingWeight));
  PrintIt(target, "\nRingBufferDirectory        : %s", m_FileRingDirectory);
  PrintIt(target, "\nNo Header to LogFile       : %d", static_cast<int>(m_FileNoHeader));

  PrintIt(target, "\nInternal Debug values      :");
  PrintIt(target, "\nProcess PID                : %d", m_ProcessId);
  PrintIt(target, "\nTrace Target               : %d", static_cast<int>(m_TraceTarget));
  PrintIt(target, "\nTrace Level                : %d", static_cast<int>(GetTraceLevel()));
  PrintIt(target, "\nTrace Level Saved          : %d", static_cast<int>(m_SavedTraceLevel));
  PrintIt(target, "\nApplication Init Done      : %d", static_cast<int>(m_ApplInitDone));
  PrintIt(target, "\nLogFile Path               : %s", m_LogPath);
  PrintIt(target, "\nLogFile Max Size           : %d", static_cast<int>(m_LogMaxSize));
  PrintIt(target, "\nRing Buffer FD             : %d", m_RingFd);
  PrintIt(target, "\nRing Buffer Factor         : %d", static_cast<int>(m_RingFactor));
  PrintIt(target, "\nRing Buffer Weight         : %d", static_cast<int>(m_RingWeight));
  PrintIt(target, "\nRing Buffer Size           : %d", static_cast<int>(m_RingSize));
  PrintIt(target, "\nRing Buffer Directory      : %s", m_TraceDirectory);
  PrintIt(target, "\nRing Buffer Path           : %s", m_RingPath);
  PrintIt(target, "\nNo Header to LogFile       : %d", static_cast<int>(m_NoHeaderFlag));
  PrintIt(target, "\n# End of header.");
  m_WritingHeader = false;
}

void CDebug::SetMainParams(int argc, char** argv) {
  CCriticalSectionGuard guard(m_Lock);
  m_Argc = argc;
  m_Argv = argv;
  if (argc <= 0 || argv == nullptr) return;
  const char* instance = m_InstanceName != nullptr ? m_InstanceName : "";
  try {
    PrintToLogFile("\n%s Command Line Options:", instance);
    for (int i = 0; i < argc; ++i) {
      PrintToLogFile("\nargv[%d] = \"%s\"", i, argv[i] != nullptr ? argv[i] : "");
    }
    if (m_TraceTarget == kTargetRingBuffer) {
      PrintIt(kTargetRingBuffer, "\n%s Command Line Options:", instance);
      for (int i = 0; i < argc; ++i) {
        PrintIt(kTargetRingBuffer, "\nargv[%d] = \"%s\"", i, argv[i] != nullptr ? argv[i] : "");
      }
    }
  } catch (...) {
  }
}

void CDebug::SetApplInitDone() {
  CCriticalSectionGuard guard(m_Lock);
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
  CCriticalSectionGuard guard(m_Lock);
  m_TraceTarget = target;
}

bool CDebug::ForceMaxDebug(bool on) {
  CCriticalSectionGuard guard(m_Lock);
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
