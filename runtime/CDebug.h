#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "runtime/CCriticalSection.h"
#include "runtime/CDebugTraceConfigFile.h"

// The operations every trace log offers, in their fixed virtual order.
class CDebugTraceConfig {
 public:
  virtual ~CDebugTraceConfig() = default;
  virtual bool IsMaster() const = 0;
  virtual bool Init(const char* name) = 0;
  virtual void Print(unsigned level, const char* fmt, ...) __attribute__((format(printf, 3, 4))) = 0;
  virtual void PrintAlways(const char* fmt, ...) __attribute__((format(printf, 2, 3))) = 0;
  virtual void PrintAlways(unsigned level, const char* fmt, ...)
      __attribute__((format(printf, 3, 4))) = 0;
  virtual void PrintAlwaysV(const char* fmt, va_list args, const char* client) = 0;
  virtual void ClientPrintV(const char* fmt, va_list args, const char* client) = 0;
};

// Process-wide trace log. Writes one line per call to a wrapping log file
// (log.<name>) and, when configured, to a memory-mapped wrap-around file
// (log.<name>_a) in the trace directory. Levels, sizes and directories come
// from the trace configuration files and environment (ReadDebugConfig).
// Tracing is off by default and never fails its caller.
class CDebug : public CDebugTraceConfig {
 public:
  enum Target : unsigned { kTargetNone = 0, kTargetLogFile = 1, kTargetRingBuffer = 2 };

  static constexpr size_t kMaxPath = 256;
  static constexpr size_t kMaxEntryHeader = 128;
  static constexpr size_t kMaxMessage = 1024;
  static constexpr unsigned kDefaultLogMaxSize = 51200;
  static constexpr unsigned kNotGiven = 0xFFFFFFFFu;
  static constexpr const char* kConfigDirectory = "/etc/velmark/OrvanaSuite/TraceConfig";
  static constexpr const char* kDefaultTraceDirectory = "/var/log/orvmon";
  static constexpr const char* kGlobalFile = "global_trace.ini";
  static constexpr const char* kGlobalSection = "GlobalDebugSettings";

  CDebug();
  explicit CDebug(const char* name);
  ~CDebug() override;
  CDebug(const CDebug&) = delete;
  CDebug& operator=(const CDebug&) = delete;

  bool IsMaster() const override { return true; }
  bool Init(const char* name) override;
  [[gnu::format(printf, 3, 4)]] void Print(unsigned level, const char* fmt, ...) override;
  [[gnu::format(printf, 2, 3)]] void PrintAlways(const char* fmt, ...) override;
  [[gnu::format(printf, 3, 4)]] void PrintAlways(unsigned level, const char* fmt, ...) override;
  void PrintAlwaysV(const char* fmt, va_list args, const char* client) override;
  void ClientPrintV(const char* fmt, va_list args, const char* client) override;

  void PrintV(unsigned level, const char* fmt, va_list args);

  void SetMainParams(int argc, char** argv);
  // End of the program's start phase: later wraps of both files come back
  // to the current position, so the start-up lines survive.
  void SetApplInitDone();
  void SetTarget(unsigned target);
  bool ForceMaxDebug(bool on);

  // Fills the configuration fields from the INI files and the environment.
  bool ReadDebugConfig(const char* name);

  static char* StringToLower(char* text);
  // Appends "_" and the upper-cased app to buf, within size-1 characters.
  static void BuildAppVarName(char* buf, size_t size, const char* app);

  // Callers test this before formatting any trace text.
  bool IsEnabled() const { return m_Enabled.load(std::memory_order_relaxed); }
  unsigned GetTraceLevel() const { return m_TraceLevel.load(std::memory_order_relaxed); }

  // State, for diagnostics and tests.
  unsigned GetSavedTraceLevel() const { return m_SavedTraceLevel; }
  unsigned GetFileDebugLevel() const { return m_FileDebugLevel; }
  unsigned GetTraceFlags() const { return m_TraceFlags; }
  unsigned GetTraceTarget() const { return m_TraceTarget; }
  unsigned GetApplInitDone() const { return m_ApplInitDone; }
  unsigned GetDynamicUpdateInterval() const {
    return m_DynamicUpdateInterval.load(std::memory_order_relaxed);
  }
  unsigned GetRingFactor() const { return m_RingFactor; }
  unsigned GetRingWeight() const { return m_RingWeight; }
  uint64_t GetRingSize() const { return m_RingSize; }
  unsigned GetRingWrapCount() const { return m_RingWrapCount; }
  unsigned GetNoHeaderFlag() const { return m_NoHeaderFlag; }
  unsigned GetMemoryTracesFlag() const { return m_FileMemoryTraces; }
  unsigned GetLogMaxSize() const { return m_LogMaxSize; }
  const char* GetTraceDirectory() const { return m_TraceDirectory; }
  const char* GetLogFilePath() const { return m_LogPath; }
  const char* GetRingBufferPath() const { return m_RingPath; }

 protected:
  void ClassInit();
  bool InitRingBuffer(const char* path, uint64_t length);
  void WriteLogHeader(unsigned target);
  void PrintIt(unsigned target, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  void PrintToLogFile(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void WriteToTarget(unsigned target, const char* client, const char* fmt, va_list args);
  void TraceToLogFile(const char* client, const char* fmt, va_list args);
  void TraceToRingBuffer(const char* client, const char* fmt, va_list args);
  size_t SetEntryHeader(char* buf, size_t size, const char* client) const;
  void CheckDynamicUpdate();

  // Where the dynamic update takes its time from; tests replace it.
  time_t (*m_Clock)(time_t*) = ::time;

 private:
  static constexpr size_t kRecordBufferSize = kMaxEntryHeader + kMaxMessage + 1 + 127;
  static constexpr size_t kEnvironmentCount = 41;
  static constexpr size_t kConfigurationCount = 13;

  struct EnvironmentValue {
    bool set = false;
    std::string value;
  };

  static constexpr size_t kWeightVariableSize = 48;

  // Entry header, then the message cut at capacity characters; returns the
  // record's length and, in fullMessage, the message's uncut length.
  size_t FormatRecord(char* buf, size_t capacity, const char* client, const char* fmt,
                      va_list args, int* fullMessage) const;
  static size_t EnsureNewline(char* record, size_t length);
  static void CopyText(char* out, size_t size, const char* text);
  static int OpenUnshared(const char* path, mode_t mode);
  void FormatTracePath(char (&out)[kMaxPath], const char* lowerName, const char* suffix) const;
  void CloseSinks();

  // In CDebugConfig.cpp; the first names the environment variable of this
  // application's ring buffer weight.
  static void WeightVariableName(char (&buf)[kWeightVariableSize], const char* instance);
  void ApplyWeightOverride(const char* instance);

  // In CDebugRingBuffer.cpp.
  void StartRingBuffer(const char* lowerName);
  void WriteRingRecord(const char* record, size_t length);
  void SkipAfterHeader(uint64_t next);

  // In CDebugHeader.cpp.
  void CaptureEnvironment();
  void WriteArguments(unsigned target);

  std::atomic<unsigned> m_TraceLevel;
  unsigned m_SavedTraceLevel;
  unsigned m_FileDebugLevel;
  unsigned m_TraceFlags;
  std::atomic<bool> m_Enabled;
  char* m_InstanceName = nullptr;
  CDebugTraceConfigFile m_GlobalSettings;
  CDebugTraceConfigFile m_ApplSettings;
  std::atomic<unsigned> m_DynamicUpdateInterval;
  time_t m_LastCheck;
  CCriticalSection m_Lock;
  int m_ProcessId;
  int m_Argc;
  char** m_Argv;
  char m_StartTime[26];
  unsigned m_TraceTarget;
  unsigned m_ApplInitDone;
  int m_RingFd;
  unsigned m_RingFactor;
  unsigned m_RingWeight;
  uint64_t m_RingSize;
  uint64_t m_RingWrapBackOffset;
  uint64_t m_RingWriteOffset;
  uint64_t m_RingStartOfInitOffset;
  char m_RecordBuffer[kRecordBufferSize];
  uint8_t* m_RingMapping;
  unsigned m_RingWrapCount;
  char m_RingPath[kMaxPath];
  unsigned m_NoHeaderFlag;
  unsigned m_FileRingFactor;
  unsigned m_FileRingWeight;
  char m_FileRingDirectory[kMaxPath];
  unsigned m_FileNoHeader;
  unsigned m_FileDynamicUpdate;
  unsigned m_FileMemoryTraces;
  char m_TraceDirectory[kMaxPath];
  unsigned m_TrailerLength;
  char m_Trailer[64];
  char m_LogPath[kMaxPath];
  FILE* m_LogFile;
  long m_LogInitEndPosition;
  unsigned m_LogMaxSize;
  unsigned m_LogInitEndCount;
  unsigned m_LogCurrentCount;
  unsigned m_LogWrapCycle;

  bool m_WritingHeader;
  EnvironmentValue m_Environment[kEnvironmentCount];
  EnvironmentValue m_Configuration[kConfigurationCount];
};

// The one instance, named "Zentrix", constructed before main.
extern CDebug g_Debug;
