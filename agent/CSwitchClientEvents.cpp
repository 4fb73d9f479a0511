// Event side of CSwitchClient: the event channel, the event thread that
// reads it, and the handler map the thread calls.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "agent/CSwitchClient.h"
#include "agent/FrameReader.h"
#include "agent/JsonChannel.h"
#include "agent/SipJson.h"
#include "runtime/CCriticalSection.h"
#include "runtime/CDebug.h"
#include "runtime/CThread.h"
#include "runtime/ThreadId.h"

namespace {

// Written into the termination pipe to wake the event thread.
constexpr char kWakeMessage[4] = {'W', 'A', 'K', 'E'};
constexpr const char* kEventThreadName = "Thread_EventMain";

// Start values of the event thread: SCHED_RR priority (only effective where
// the scheduling is not inherited), not suspended, 1 MiB of stack, joinable.
constexpr unsigned kEventThreadPriority = 63;
constexpr unsigned long kEventThreadStack = 0x100000;

// How long JsonDisableEvents waits for the thread: 10 times 500 ms, framed
// by two 30 ms pauses.
constexpr int kStopPolls = 10;
constexpr useconds_t kStopPollUsec = 500000;
constexpr useconds_t kStopPauseUsec = 30000;

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

// The traces of one event's receive passes.
class EventPasses : public FrameReader::Observer {
 public:
  EventPasses(int fd, uint32_t length) : m_Fd(fd), m_Length(static_cast<int>(length)) {}
  void Read(ssize_t) override {}
  void Incomplete(size_t received, int pass) override {
    g_Debug.Print(1, "GetEventJson: Event receiving on fd=%d incomplete (inLength=%d, InMax=%d, RetryCnt=%d) --> continue\n",
                  m_Fd, static_cast<int>(received), m_Length, pass);
  }
  void Interrupted(size_t received, int pass) override {
    g_Debug.Print(1,
                  "GetEventJson: Event receiving on fd=%d interrupted (errno=EINTR, inLength=%d, InMax=%d) --> retry=%d\n",
                  m_Fd, static_cast<int>(received), m_Length, FrameReader::kPasses - pass);
  }

 private:
  int m_Fd;
  int m_Length;
};

}  // namespace

void CSwitchClient::ThreadDeleter::operator()(CThread* thread) const noexcept { delete thread; }

bool CSwitchClient::EnableEvents(bool enable, bool) {
  if (!enable) return JsonDisableEvents();

  if (m_EventsEnabled.load()) {
    g_Debug.Print(3, "JsonEnableEvents: -> events already enabled -> ignored!\n");
    return true;
  }
  // A thread stopped from its own handler is still on its way out: it must
  // be gone before the new pipe and channel exist, and cannot wait for itself.
  if (OnEventThread()) {
    g_Debug.Print(1, "JsonEnableEvents: ## ERROR: events cannot be enabled again from the event thread\n");
    return false;
  }
  JoinEventThread();

  int pipeFds[2];
  // Close-on-exec: a browser started later must not inherit the pipe.
  if (pipe2(pipeFds, O_CLOEXEC) != 0) {
    g_Debug.Print(1, "JsonEnableEvents: ## ERROR: Cannot create pipe for termination thread\n");
    return false;
  }
  m_PipeReadFd = pipeFds[0];
  m_PipeWriteFd = pipeFds[1];
  g_Debug.Print(4, "JsonEnableEvents:   pipe [%d,%d] for termination-thread created\n", m_PipeReadFd, m_PipeWriteFd);

  // The thread keeps its own copy: it must not take the client mutex.
  m_EventClientName = GetApplicationName();
  int fd = JsonRegisterForEvents(m_EventClientName.c_str());
  if (fd < 0) {
    g_Debug.Print(1, "JsonEnableEvents: WARNING: cannot register thread for events\n");
    CloseFd(m_PipeReadFd);
    CloseFd(m_PipeWriteFd);
    return false;
  }
  m_FdEventChannel = fd;
  g_Debug.Print(4, "JsonEnableEvents:   thread for events registered on m_FdEventChannel=%d\n", m_FdEventChannel);
  g_Debug.Print(4, "JsonEnableEvents:   start event thread \"%s\"...", kEventThreadName);

  if (!m_EventThread) m_EventThread.reset(new CThread());
  // Set before the start as well, so that a disable right after this call
  // cannot miss a thread that has not been scheduled yet.
  m_ThreadRunning.store(true);
  if (!m_EventThread->Start(&CSwitchClient::Thread_EventMain, this, kEventThreadPriority, false, kEventThreadStack, 0,
                            true)) {
    m_ThreadRunning.store(false);
    g_Debug.Print(1, "JsonEnableEvents: WARNING: cannot start thread for events (Modulename=%s, Details=%s started\n",
                  kEventThreadName, m_EventClientName.c_str());
    CloseFd(m_PipeReadFd);
    CloseFd(m_PipeWriteFd);
    CloseEventChannel(m_FdEventChannel);
    m_FdEventChannel = -1;
    return false;
  }
  g_Debug.Print(4, "JsonEnableEvents:   thread for events (Modulename=%s, Details=%s started\n", kEventThreadName,
                m_EventClientName.c_str());
  g_Debug.Print(3, "JsonEnableEvents: events enabled\n");
  m_EventsEnabled.store(true);
  return true;
}

bool CSwitchClient::JsonDisableEvents() {
  g_Debug.Print(3, "JsonDisableEvents: we are going to disable events for this instance ...\n");
  if (!m_EventsEnabled.load()) {
    g_Debug.Print(3, "JsonDisableEvents: -> events already disabled -> ignored\n");
    return true;
  }

  g_Debug.Print(1, "WakeupThread_EventMain: wakeup WakeupThread_EventMain for termination on pipe[%d,%d]\n",
                m_PipeReadFd, m_PipeWriteFd);
  if (m_PipeWriteFd >= 0) {
    ssize_t n;
    do {
      n = write(m_PipeWriteFd, kWakeMessage, sizeof kWakeMessage);
    } while (n < 0 && errno == EINTR);
  }
  usleep(kStopPauseUsec);

  // A handler that disables events runs on the event thread itself, which
  // cannot end while it waits here.
  const bool onEventThread = OnEventThread();
  for (int i = 0; i < kStopPolls && !onEventThread && m_ThreadRunning.load(); ++i) {
    g_Debug.Print(3, "JsonDisableEvents:   retry and wait for event thread terminated...\n");
    usleep(kStopPollUsec);
  }
  usleep(kStopPauseUsec);
  // Every wait of the thread ends at the wake-up, so this is short. Until it
  // returns, the channel descriptor is the thread's alone.
  JoinEventThread();

  g_Debug.Print(4, "JsonDisableEvents: unregister for events\n");
  const int fd = m_FdEventChannel;
  m_FdEventChannel = -1;
  JsonUnregisterForEvents(fd);

  g_Debug.Print(4, "JsonDisableEvents: close pipe\n");
  CloseFd(m_PipeReadFd);
  CloseFd(m_PipeWriteFd);

  g_Debug.Print(3, "JsonDisableEvents: events disabled\n");
  m_EventsEnabled.store(false);
  return true;
}

bool CSwitchClient::RegisterEventHandler(EventHandler handler, void* context) {
  if (handler == nullptr) return false;
  std::lock_guard<CCriticalSection> lock(m_CallbackLock);
  m_CallbackMap[handler] = context;  // a handler registered again gets the new context
  return true;
}

bool CSwitchClient::UnregisterEventHandler(EventHandler handler) {
  std::lock_guard<CCriticalSection> lock(m_CallbackLock);
  return m_CallbackMap.erase(handler) > 0;
}

void CSwitchClient::CallEventHandlers(SipJson& event) {
  // Recursive: a handler may (un)register handlers, itself included.
  std::lock_guard<CCriticalSection> lock(m_CallbackLock);
  // Walk by key rather than by iterator: the entry just called may be gone.
  auto it = m_CallbackMap.begin();
  while (it != m_CallbackMap.end()) {
    const EventHandler handler = it->first;
    const unsigned handlerId = static_cast<unsigned>(reinterpret_cast<uintptr_t>(handler));
    g_Debug.Print(5, "\nCCallbackMap        : Call notification callback 0x%X .. ", handlerId);
    handler(event, it->second);
    g_Debug.Print(5, "\nCCallbackMap        : .. notification callback 0x%X finished", handlerId);
    it = m_CallbackMap.upper_bound(handler);
  }
}

bool CSwitchClient::OnEventThread() const {
  return m_EventThread && m_EventThread->GetThreadId() != 0 && pthread_equal(m_EventThread->GetThreadId(), pthread_self());
}

void CSwitchClient::JoinEventThread() {
  if (m_EventThread && m_EventThread->GetThreadId() != 0 && !OnEventThread()) m_EventThread->WaitForTermination();
}

void* CSwitchClient::Thread_EventMain(void* client) {
  if (client == nullptr)
    g_Debug.Print(1, "Thread_EventMain: ## ERROR ## internal error on starting pClassContext = %p", client);
  else
    static_cast<CSwitchClient*>(client)->EventMain();
  g_Debug.Print(1, "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n", ThreadId(), 0u);
  return nullptr;
}

void CSwitchClient::EventMain() {
  g_Debug.Print(2, "Thread_EventMain: Event thread started\n");
  m_ThreadRunning.store(true);
  const char* clientName = m_EventClientName.c_str();
  SipJson event;

  for (;;) {
    const int eventFd = m_FdEventChannel;
    const int pipeFd = m_PipeReadFd;
    // Closed under us (a handler disabled events) or beyond what select
    // can watch: nothing sensible is left to wait for.
    if (pipeFd < 0 || pipeFd >= FD_SETSIZE || eventFd < 0 || eventFd >= FD_SETSIZE) break;

    fd_set readSet;
    fd_set exceptSet;
    FD_ZERO(&readSet);
    FD_ZERO(&exceptSet);
    FD_SET(eventFd, &readSet);
    FD_SET(pipeFd, &readSet);
    FD_SET(eventFd, &exceptSet);
    FD_SET(pipeFd, &exceptSet);
    g_Debug.Print(1, "Thread_EventMain: Enter select...\n");
    int count = select((eventFd > pipeFd ? eventFd : pipeFd) + 1, &readSet, nullptr, &exceptSet, nullptr);
    g_Debug.Print(1, "Thread_EventMain: ...return from select, count = %d\n", count);

    if (count == 0) {
      g_Debug.Print(1, "Thread_EventMain: ## WARNING ##: select returned 0 (maybe timeout) --> continue\n");
      continue;
    }
    if (count < 0) {
      if (errno == EINTR) {
        g_Debug.Print(1, "Thread_EventMain: select interrupted by EINTR --> ignoring\n");
        continue;
      }
      g_Debug.Print(1, "Thread_EventMain: ## ERROR ##: select returned -1, errno=%d --> bail out\n", errno);
      break;
    }
    if (FD_ISSET(pipeFd, &readSet)) {
      g_Debug.Print(1, "Thread_EventMain: somebody signaled terminate -> bail out\n");
      break;
    }
    if (!FD_ISSET(eventFd, &readSet)) continue;

    event.JsonInit();
    g_Debug.Print(1, "Thread_EventMain: Get JSON event from socket %d...\n", eventFd);
    int result = JsonGetEvent(event, eventFd, clientName);
    if (result == -1) {
      g_Debug.Print(1, "Thread_EventMain: ## WARNING ##: JsonGetEvent failed --> try to reregister\n");
      const int oldFd = m_FdEventChannel;
      m_FdEventChannel = -1;
      JsonUnregisterForEvents(oldFd);
      if (!WaitForServiceAvailable(pipeFd)) break;
      const int fd = JsonRegisterForEvents(clientName, pipeFd);
      if (fd < 0) {
        g_Debug.Print(1, "ReregisterForEvents: ## WARNING ##: cannot reregister thread for events\n");
        break;
      }
      m_FdEventChannel = fd;
      g_Debug.Print(1, "ReregisterForEvents:   thread for events reregistered on m_FdEventChannel=%d\n", fd);
      continue;
    }
    if (result != eventFd)
      g_Debug.Print(1, "Thread_EventMain: ## WARNING ##: Event channel has been reopened FdOld=%d, FdNew=%d --> accept it\n",
                    eventFd, result);
    // Stored even when equal: a reopen clears the member, and the new
    // channel may well get the old number.
    m_FdEventChannel = result;

    if (g_Debug.IsEnabled()) {
      const int cmd = event.GetCmdIndex();
      g_Debug.Print(1, "EVENT OC=%04X, OE=%04X, Cab=%02X, OId=%04X, Status=%04X, HasReplyData=%d\n",
                    event.GetCmdElemValue(cmd, "OC", 0), event.GetCmdElemValue(cmd, "OE", 0),
                    event.GetCmdElemValue(cmd, "CA", 0), event.GetCmdElemValue(cmd, "OI", 0),
                    event.GetCmdElemValue(cmd, "ST", SipJson::kStatusAbsent), event.HasReplyData() ? 1 : 0);
    }
    g_Debug.Print(1, "Thread_EventMain: Call event methods from client\n");
    CallEventHandlers(event);
    g_Debug.Print(1, "Thread_EventMain: ...return from client call\n");
  }

  m_ThreadRunning.store(false);  // the stop still joins the thread before the client may go
}

int CSwitchClient::JsonGetEvent(SipJson& event, int fd, const char* clientName) {
  switch (ReadEventFrame(event, fd)) {
    case EventFrame::kRead:
    case EventFrame::kDropped:
      return fd;
    case EventFrame::kBroken:
      return -1;
    case EventFrame::kOutOfStep:
      break;
  }
  return ReplaceEventChannel(fd, clientName);
}

CSwitchClient::EventFrame CSwitchClient::ReadEventFrame(SipJson& event, int fd) {
  if (fd < 0) {
    g_Debug.PrintAlways("GetEventJson: ERROR: called with invalid fdEventChannel (%d) --> ignore this event\n", fd);
    return EventFrame::kBroken;
  }

  // The waits have no limit, as a blocking read's, but end when stopping.
  FrameReader reader(fd, -1, m_PipeReadFd);
  uint32_t length = 0;
  ssize_t n = 0;
  if (!reader.ReadLength(length, n)) {
    g_Debug.Print(1, "GetEventJson: something is fishy on fd=%d (rwresult=%d, errno=%d)\n", fd, static_cast<int>(n),
                  n < 0 ? errno : 0);
    return EventFrame::kBroken;
  }
  if (!FrameReader::WithinCap(length)) {
    // The stream is out of step: reopen rather than allocate that much.
    g_Debug.Print(1,
                  "GetEventJson: Event receiving on fd=%d incomplete (buffer too small) (inLength=%d, InMax=%d --> reopen!)\n",
                  fd, 0, static_cast<int>(FrameReader::kMaxLength));
    return EventFrame::kOutOfStep;
  }
  const FrameReader::Buffer buffer = FrameReader::Allocate(length);
  if (!buffer) {
    g_Debug.PrintAlways("GetEventJson: ERROR: Can't allocate memory for JSON event!\n");
    return EventFrame::kDropped;
  }

  EventPasses passes(fd, length);
  size_t received = 0;
  switch (reader.ReadPayload(buffer.get(), length, received, passes, true)) {
    case FrameReader::Result::kComplete:
      g_Debug.Print(2, "GetEventJson: processing event on fd=%d (inLength=%d)\n", fd, static_cast<int>(length));
      event.ParseReply(buffer.get(), strnlen(buffer.get(), length));
      return EventFrame::kRead;
    case FrameReader::Result::kEndOfFile:
      g_Debug.Print(1, "GetEventJson: Event receiving on fd=%d failed EOF (inLength=%d, InMax=%d) --> ignore this event!\n",
                    fd, 0, static_cast<int>(length));
      return EventFrame::kBroken;
    case FrameReader::Result::kWoken:
      // Stopping wins over the rest of this event; the caller's next wait
      // sees the wake-up as well.
      g_Debug.Print(1, "GetEventJson: terminate signaled while receiving on fd=%d --> ignore this event\n", fd);
      return EventFrame::kBroken;
    case FrameReader::Result::kFailed:
      g_Debug.Print(1, "GetEventJson: ERROR: Event receiving on fd=%d failed (inLength=%d, InMax=%d) --> reopen\n", fd,
                    static_cast<int>(received), static_cast<int>(length));
      break;
    case FrameReader::Result::kIncomplete:
      g_Debug.Print(1,
                    "GetEventJson: ERROR: Event receiving on fd=%d failed: inLength invalid (inLength=%d, InMax=%d) --> reopen\n",
                    fd, static_cast<int>(received), static_cast<int>(length));
      break;
  }
  return EventFrame::kOutOfStep;
}

int CSwitchClient::ReplaceEventChannel(int fd, const char* clientName) {
  // Cleared before the reopen closes it: the number may belong to another
  // file of the process at once.
  if (m_FdEventChannel == fd) m_FdEventChannel = -1;
  const int newFd = ReOpenEventChannel(clientName, fd, m_PipeReadFd);
  if (newFd < 0) {
    g_Debug.PrintAlways("GetEventJson: ERROR: Can't reopen Event Channel on %s --> ignore this event!\n", kEventSocket);
    return -1;
  }
  g_Debug.PrintAlways("GetEventJson: Event Channel reopened on %s, new fd=%d\n", kEventSocket, newFd);
  return newFd;
}
