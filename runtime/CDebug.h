#pragma once

#include <cstdarg>
#include <cstddef>

// Process-wide trace log. PROVISIONAL INTERFACE: the full implementation
// (log file, ring buffer, configuration) replaces the stub body; the public
// operations below are what the rest of the program calls and keep their
// signatures.
class CDebugTraceConfig {
 public:
  virtual ~CDebugTraceConfig() = default;
};

class CDebug : public CDebugTraceConfig {
 public:
  CDebug();
  explicit CDebug(const char* name);
  ~CDebug() override;

  CDebug(const CDebug&) = delete;
  CDebug& operator=(const CDebug&) = delete;

  virtual bool IsMaster() const { return true; }
  virtual bool Init(const char* name);
  virtual void Print(unsigned level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  virtual void PrintAlways(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  virtual void PrintAlways(unsigned level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  virtual void PrintAlwaysV(const char* fmt, va_list args, const char* client);
  virtual void ClientPrintV(const char* fmt, va_list args, const char* client);

  void PrintV(unsigned level, const char* fmt, va_list args);

  // Callers test this before formatting any trace text.
  bool IsEnabled() const { return m_Enabled; }
  unsigned GetTraceLevel() const { return m_TraceLevel; }

 protected:
  unsigned m_TraceLevel = 0;
  bool m_Enabled = false;
};

// The one instance, named "Zentrix", constructed before main.
extern CDebug g_Debug;
