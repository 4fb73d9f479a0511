#pragma once
// Counts live heap bytes, their peak and the number of allocations by
// standing in for malloc and friends. Include from exactly one source of a
// benchmark executable. Sanitizer builds bring their own allocator; there
// the counters stay 0.

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace heap_counter {

inline std::atomic<int64_t> g_Live{0};
inline std::atomic<int64_t> g_Peak{0};
inline std::atomic<int64_t> g_Allocations{0};

inline void CountAlloc(void* p) {
  if (p == nullptr) return;
  g_Allocations.fetch_add(1, std::memory_order_relaxed);
  const int64_t size = static_cast<int64_t>(malloc_usable_size(p));
  const int64_t now = g_Live.fetch_add(size) + size;
  int64_t peak = g_Peak.load(std::memory_order_relaxed);
  while (now > peak && !g_Peak.compare_exchange_weak(peak, now)) {
  }
}

inline void CountFree(void* p) {
  if (p != nullptr) g_Live.fetch_sub(static_cast<int64_t>(malloc_usable_size(p)));
}

// Resets the peak to the current level and returns that level.
inline int64_t StartWatch() {
  const int64_t now = g_Live.load();
  g_Peak.store(now);
  return now;
}

inline int64_t Peak() { return g_Peak.load(); }
inline int64_t Allocations() { return g_Allocations.load(std::memory_order_relaxed); }

}  // namespace heap_counter

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

void* malloc(size_t size) {
  void* p = __libc_malloc(size);
  heap_counter::CountAlloc(p);
  return p;
}
void* calloc(size_t count, size_t size) {
  void* p = __libc_calloc(count, size);
  heap_counter::CountAlloc(p);
  return p;
}
void* realloc(void* old, size_t size) {
  heap_counter::CountFree(old);
  void* p = __libc_realloc(old, size);
  // A failed realloc leaves the old block in place.
  heap_counter::CountAlloc(p != nullptr || size == 0 ? p : old);
  return p;
}
void* memalign(size_t alignment, size_t size) {
  void* p = __libc_memalign(alignment, size);
  heap_counter::CountAlloc(p);
  return p;
}
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** out, size_t alignment, size_t size) {
  void* p = memalign(alignment, size);
  if (p == nullptr) return 12;  // ENOMEM
  *out = p;
  return 0;
}
void free(void* p) {
  heap_counter::CountFree(p);
  __libc_free(p);
}
}
#endif
