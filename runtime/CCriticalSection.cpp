#include "runtime/CCriticalSection.h"

CCriticalSection::CCriticalSection() : m_Owner(0), m_Count(0), m_Valid(false) {
  m_Valid = pthread_mutex_init(&m_Mutex, nullptr) == 0;
}

CCriticalSection::~CCriticalSection() {
  if (!m_Valid) return;
  if (IsHeldByCaller()) {
    m_Count = 0;
    m_Owner.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_Mutex);
  }
  pthread_mutex_destroy(&m_Mutex);
  // Calls on a destroyed lock (late trace lines at exit) become no-ops.
  m_Valid = false;
}

bool CCriticalSection::IsHeldByCaller() const {
  // Only the calling thread ever stores its own id, so a relaxed load is
  // enough to tell "mine" from "not mine".
  return pthread_equal(m_Owner.load(std::memory_order_relaxed), pthread_self()) != 0;
}

unsigned CCriticalSection::RecursionCount() const {
  return IsHeldByCaller() ? m_Count : 0;
}

void CCriticalSection::Enter() const {
  if (!m_Valid) return;
  if (!IsHeldByCaller()) {
    pthread_mutex_lock(&m_Mutex);
    m_Owner.store(pthread_self(), std::memory_order_relaxed);
  }
  ++m_Count;
}

void CCriticalSection::Leave() const {
  if (!m_Valid || !IsHeldByCaller()) return;
  if (m_Count > 0) --m_Count;
  if (m_Count == 0) {
    m_Owner.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_Mutex);
  }
}

void CCriticalSection::CleanupHandlerForCritSecMutex(void* arg) {
  auto* lock = static_cast<CCriticalSection*>(arg);
  if (lock == nullptr || !lock->m_Valid || !lock->IsHeldByCaller()) return;
  lock->m_Count = 0;
  lock->m_Owner.store(0, std::memory_order_relaxed);
  pthread_mutex_unlock(&lock->m_Mutex);
}
