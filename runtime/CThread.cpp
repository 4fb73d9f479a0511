#include "runtime/CThread.h"

#include <sched.h>

#include <cstring>

#include "runtime/CDebug.h"
#include "runtime/ThreadId.h"

namespace {

constexpr unsigned kLevelError = 1;
constexpr unsigned kLevelDetail = 4;

// Destroys the attribute object on every way out of Start.
class ThreadAttributes {
 public:
  ThreadAttributes() : m_Result(pthread_attr_init(&m_Attr)) {}
  ~ThreadAttributes() {
    if (m_Result == 0) pthread_attr_destroy(&m_Attr);
  }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;

  int InitResult() const { return m_Result; }
  pthread_attr_t* Get() { return &m_Attr; }

 private:
  pthread_attr_t m_Attr;
  int m_Result;
};

}  // namespace

void* CThread::Trampoline(void* state) {
  RunState* run = static_cast<RunState*>(state);
  // A destructor, so that a cancelled thread (unwound by the cancellation)
  // is marked as ended as well.
  struct MarkFinished {
    RunState* run;
    ~MarkFinished() {
      run->finished.store(true);
      run->Release();
    }
  } mark{run};
  return run->routine(run->arg);
}

void CThread::ReleaseRunState() {
  if (m_RunState != nullptr) m_RunState->Release();
  m_RunState = nullptr;
}

bool CThread::Start(void* (*routine)(void*), void* arg, unsigned priority, bool suspend,
                    unsigned long stackSize, unsigned long /*flags*/, bool waitable) {
  g_Debug.Print(5, "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, KillAliveThread=%d",
                priority, suspend, static_cast<unsigned>(stackSize), waitable, m_KillAliveThread);
  if (m_KillAliveThread && m_ThreadId != 0) Kill(0);

  ThreadAttributes attr;
  if (attr.InitResult() != 0) {
    g_Debug.Print(kLevelError, "\npthread_attr_init failed: %d", attr.InitResult());
    return false;
  }
  g_Debug.Print(kLevelDetail, "\npthread_attr_init: %d", attr.InitResult());

  if (!waitable) {
    int rc = pthread_attr_setdetachstate(attr.Get(), PTHREAD_CREATE_DETACHED);
    if (rc != 0) {
      g_Debug.Print(kLevelError, "\npthread_attr_setdetachstate failed: %d", rc);
      return false;
    }
  }
  g_Debug.Print(kLevelDetail, "\nThreadPrio=%d", priority);

  if (priority != 0) {
    int rc = pthread_attr_setschedpolicy(attr.Get(), SCHED_RR);
    if (rc != 0) {
      g_Debug.Print(kLevelError, "\npthread_attr_setschedpolicy failed: %d", rc);
      return false;
    }
    sched_param param;
    std::memset(&param, 0, sizeof param);
    rc = pthread_attr_getschedparam(attr.Get(), &param);
    if (rc != 0) {
      g_Debug.Print(kLevelError, "\npthread_attr_getschedparam failed: %d", rc);
      return false;
    }
    param.sched_priority = static_cast<int>(priority);
    rc = pthread_attr_setschedparam(attr.Get(), &param);
    if (rc != 0) {
      g_Debug.Print(kLevelError, "\npthread_attr_setschedparam failed: error=%d priority=%d", rc, priority);
      return false;
    }
  }

  if (stackSize != 0) {
    int rc = pthread_attr_setstacksize(attr.Get(), stackSize);
    if (rc != 0) {
      g_Debug.Print(kLevelError, "\npthread_attr_setstacksize failed: %d", rc);
      return false;
    }
  }

  auto* run = new RunState;
  run->routine = routine;
  run->arg = arg;
  pthread_t id = 0;
  int rc = pthread_create(&id, attr.Get(), &CThread::Trampoline, run);
  if (rc != 0) {
    delete run;
    g_Debug.Print(kLevelError, "\npthread_create failed: %d", rc);
    return false;
  }
  m_ThreadId = id;
  m_Waitable = waitable;
  ReleaseRunState();
  m_RunState = run;
  g_Debug.Print(kLevelDetail, "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x", ThreadId(id),
                priority, waitable, static_cast<unsigned>(stackSize));
  sched_yield();  // give the new thread the chance to run at once
  return true;
}

bool CThread::Kill(unsigned /*exitCode*/) {
  g_Debug.Print(kLevelError, "\nCThread::Kill: Try to kill the Thread = 0x%08X", ThreadId(m_ThreadId));
  if (m_ThreadId == 0) {
    g_Debug.Print(kLevelError, "\nCThread::Kill: Thread = 0x0%08X doesn't exist !", ThreadId(m_ThreadId));
    return false;
  }

  if (m_Waitable) {
    g_Debug.Print(kLevelError, "\nCThread::Kill: Try to join a joinable Thread = 0x%08X", ThreadId(m_ThreadId));
    return Join("CThread::Kill", kLevelError);
  }

  pthread_t id = m_ThreadId;
  m_ThreadId = 0;
  bool finished = m_RunState == nullptr || m_RunState->finished.load();
  ReleaseRunState();
  g_Debug.Print(kLevelError, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0%08X", ThreadId(id));
  // An ended detached thread's id may already name another thread, so the
  // ended flag is asked first and the id used only while it still runs.
  if (finished) return true;
  int policy = 0;
  sched_param param;
  if (pthread_getschedparam(id, &policy, &param) != 0) return true;
  g_Debug.Print(kLevelError, "\nCThread::Kill: Killing a non-joinable thread 0x%08X", ThreadId(id));
  int rc = pthread_cancel(id);
  if (rc != 0) {
    g_Debug.Print(kLevelError, "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)", ThreadId(id),
                  rc);
    return false;
  }
  g_Debug.Print(kLevelError, "\nCThread::Kill: a non-joinable thread 0x%08X cancel invoked", ThreadId(id));
  return true;
}

bool CThread::WaitForTermination(unsigned timeout) {
  if (m_ThreadId == 0) {
    g_Debug.Print(kLevelError, "\nCThread::WaitForTermination: Thread = 0x0%08X doesn't exist !", ThreadId(m_ThreadId));
    return false;
  }
  if (!m_Waitable) {
    g_Debug.Print(kLevelError, "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0x%08X",
                  ThreadId(m_ThreadId));
    return false;
  }
  if (timeout != kInfinite) {
    g_Debug.Print(kLevelError,
                  "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with timeout",
                  ThreadId(m_ThreadId));
  }
  return Join("CThread::WaitForTermination", kLevelDetail);
}

bool CThread::Join(const char* caller, unsigned endLevel) {
  void* status = nullptr;
  int rc = pthread_join(m_ThreadId, &status);
  if (rc != 0) {
    g_Debug.Print(kLevelError, "\n%s: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x", caller,
                  ThreadId(m_ThreadId), rc);
    return false;
  }
  g_Debug.Print(endLevel, "\n%s: a joinable Thread = 0x%08X has terminated, pstat=%p", caller, ThreadId(m_ThreadId),
                status);
  m_ThreadId = 0;
  ReleaseRunState();
  return true;
}

bool CThread::SetThreadName(const char* name) {
  if (name == nullptr) return false;
  char shortName[16];
  std::strncpy(shortName, name, sizeof shortName - 1);
  shortName[sizeof shortName - 1] = '\0';
  return pthread_setname_np(pthread_self(), shortName) == 0;
}
