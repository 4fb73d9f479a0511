#pragma once

#include <pthread.h>

#include <atomic>

// A traced wrapper around one POSIX thread. One owner starts and kills the
// thread; the object itself takes no lock.
class CThread {
 public:
  // Passed as timeout: wait for as long as it takes.
  static constexpr unsigned kInfinite = 0xFFFFFFFFu;

  // killAliveThread: Start kills the thread held so far before it starts a
  // new one.
  explicit CThread(bool killAliveThread = false) : m_KillAliveThread(killAliveThread) {}
  ~CThread() { ReleaseRunState(); }
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  // priority 0 keeps the default policy; any other value asks for SCHED_RR at
  // that priority. stackSize 0 keeps the default stack. There is no way to
  // start a POSIX thread suspended, so suspend is only traced. waitable
  // decides between a joinable and a detached thread.
  bool Start(void* (*routine)(void*), void* arg, unsigned priority, bool suspend,
             unsigned long stackSize, unsigned long flags, bool waitable);

  // Joins a joinable thread (it is expected to end by itself) or cancels a
  // detached one that still runs. A detached thread that has already ended
  // counts as killed.
  bool Kill(unsigned exitCode = 0);

  // Joins a joinable thread. POSIX joins have no timeout; any timeout other
  // than kInfinite is traced and then waited out in full.
  bool WaitForTermination(unsigned timeout = kInfinite);

  // Names the calling thread (at most 15 characters are kept).
  static bool SetThreadName(const char* name);

  pthread_t GetThreadId() const { return m_ThreadId; }
  bool IsWaitable() const { return m_Waitable; }

 private:
  // Shared with the running thread so that a detached thread's end can be
  // seen without touching a pthread_t that may already be recycled.
  // Counted by hand: the owner and the thread each hold one reference.
  struct RunState {
    void* (*routine)(void*) = nullptr;
    void* arg = nullptr;
    std::atomic<bool> finished{false};
    std::atomic<int> references{2};
    void Release() {
      if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
  };
  static void* Trampoline(void* state);
  // Joins the joinable thread for caller (the name its trace lines carry);
  // the thread's end is traced at endLevel.
  bool Join(const char* caller, unsigned endLevel);
  void ReleaseRunState();

  pthread_t m_ThreadId = 0;
  bool m_KillAliveThread = false;
  bool m_Waitable = false;
  RunState* m_RunState = nullptr;
};
