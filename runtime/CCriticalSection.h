#pragma once

#include <pthread.h>

#include <atomic>

// Recursive lock built from a plain mutex, the owning thread and a count.
// The owner is atomic because other threads read it (to decide whether they
// already hold the lock) without holding the mutex. When the mutex could not
// be initialised every operation is a no-op: the users (trace log, registry)
// prefer running unlocked to not running.
//
// lock()/unlock() make it a standard lockable, so a scope holds it with
// std::lock_guard<CCriticalSection> (or std::unique_lock) like any mutex.
class CCriticalSection {
 public:
  CCriticalSection();
  ~CCriticalSection();
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;

  void Enter() const;
  // Only the owner can leave; a call from any other thread does nothing.
  void Leave() const;
  void lock() const { Enter(); }
  void unlock() const { Leave(); }

  // Unwinding clean-up for a locked region: releases the lock completely,
  // whatever the recursion count. arg is the CCriticalSection*.
  static void CleanupHandlerForCritSecMutex(void* arg);

  bool IsValid() const { return m_Valid; }
  bool IsHeldByCaller() const;
  unsigned RecursionCount() const;

 private:
  mutable pthread_mutex_t m_Mutex;
  mutable std::atomic<pthread_t> m_Owner;
  mutable unsigned m_Count;
  bool m_Valid;
};
