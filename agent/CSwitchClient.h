#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "agent/CTesselClientIf.h"
#include "runtime/CCriticalSection.h"

class CThread;
class SipJson;

// Agent client of the local daemon: reference-counted attach, command
// records over the JSON request channel, and an optional event thread.
class CSwitchClient : public CTesselClientIf {
 public:
  // Fixed locations (resolved through CSystemRoot when used).
  static constexpr const char* kDaemonPath = "/usr/sbin/omad";
  static constexpr const char* kAltDaemonPath = "/usr/sbin/oasd";
  static constexpr const char* kClassicSocket = "/dev/omads";
  static constexpr const char* kRequestSocket = "/dev/omadsj";
  static constexpr const char* kEventSocket = "/dev/omadaj";
  static constexpr const char* kPidDir = "/var/run/";
  static constexpr const char* kMaxWaitVariable = "OV_MAXWAIT_FOR_OMAD";
  static constexpr unsigned kCabinetOpCode = 0xE204;

  CSwitchClient();
  ~CSwitchClient() override;
  CSwitchClient(const CSwitchClient&) = delete;
  CSwitchClient& operator=(const CSwitchClient&) = delete;

  // Request side, in interface order.
  bool Attach(const char* serverName, bool withEvents = false, unsigned flags = 0) override;
  void Detach() override;
  unsigned Request(SipJson& cmd, unsigned timeout) override;
  bool GetServerCabinetNumber(unsigned& cabinet) override;
  bool SetApplicationName(const char* name) override;
  bool SetLogonUser(const char* user, const char* password, const char* domain) override;
  bool SetRequestMethod(const char* method) override;
  bool GetCurrentRequestMethod(std::string& method) const override;
  unsigned GetLastError() const override;
  std::string GetLastErrorMsg(std::string& msg) const override;

  // Event side.
  bool EnableEvents(bool enable, bool unused = false) override;
  bool RegisterEventHandler(EventHandler handler, void* context) override;
  bool UnregisterEventHandler(EventHandler handler) override;
  virtual void Event(SipJson& event);

  // Event thread.
  bool JsonDisableEvents();
  static void* Thread_EventMain(void* client);
  void EventMain();
  int JsonGetEvent(SipJson& event, int fd, const char* clientName);

  // Service readiness.
  static bool IsServiceInstalled(const char* path);
  static bool IsServiceRunning(const char* path);
  bool IsServiceReady(const char* daemonPath, const char* socketPath);
  bool WaitForServiceAvailable(int terminateFd);

  // Read-only views for diagnostics and tests.
  unsigned GetAttachCount() const;
  int GetRequestFd() const;
  bool EventsEnabled() const { return m_EventsEnabled.load(); }
  bool EventThreadRunning() const { return m_ThreadRunning.load(); }
  std::string GetApplicationName() const;

 protected:
  void SetLastError(unsigned code, const char* text);

 private:
  struct ThreadDeleter {
    void operator()(CThread* thread) const noexcept;
  };

  // Connects a test socket to socketPath; true when connected (then closed).
  bool TryOpenOmadSocket(const char* socketPath);
  // Finds the installed daemon binary once; false when there is none.
  bool CheckForInstalledService();

  bool OnEventThread() const;
  // Waits for an event thread that has not been reaped; never for itself.
  void JoinEventThread();

  // What reading one event frame leaves of the event and the channel.
  enum class EventFrame {
    kRead,       // parsed into the event
    kDropped,    // lost; the channel stays
    kBroken,     // lost; the channel is gone (closed, stopping, bad descriptor)
    kOutOfStep,  // lost; the channel must be reopened
  };
  EventFrame ReadEventFrame(SipJson& event, int fd);
  // Closes fd and opens and registers a new event channel; -1 when none.
  int ReplaceEventChannel(int fd, const char* clientName);
  void CallEventHandlers(SipJson& event);

  // Request side; guarded by m_Mutex.
  mutable std::mutex m_Mutex;
  int m_FdRequestChannel = -1;
  unsigned m_AttachCount = 0;
  std::string m_ApplicationName;
  std::string m_DaemonPath;

  // Event side. The channel descriptor belongs to the event thread while it
  // runs, to the thread that enables or stops events otherwise.
  int m_FdEventChannel = -1;
  int m_PipeReadFd = -1;
  int m_PipeWriteFd = -1;
  std::atomic<bool> m_ThreadRunning{false};
  // The client name as the event thread uses it, copied when events are
  // enabled: the thread never takes m_Mutex.
  std::string m_EventClientName;
  std::atomic<bool> m_EventsEnabled{false};
  std::unique_ptr<CThread, ThreadDeleter> m_EventThread;

  // Callback map and its lock, recursive since handlers may (un)register
  // handlers from inside a callback on the event thread.
  std::map<EventHandler, void*> m_CallbackMap;
  CCriticalSection m_CallbackLock;

  unsigned m_LastError = 0;
  const char* m_LastErrorMsg = "NO ERROR";
};
