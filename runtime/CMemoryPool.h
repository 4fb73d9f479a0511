#pragma once

// Byte buffers for the runtime layer. Plain heap allocation: the interface
// leaves room for a pooled allocator that this program does not need.
class CMemoryPool {
 public:
  CMemoryPool() = default;
  virtual ~CMemoryPool();
  CMemoryPool(const CMemoryPool&) = delete;
  CMemoryPool& operator=(const CMemoryPool&) = delete;

  // A new array of size bytes; allocation failure throws like array new.
  unsigned char* PoolAlloc(unsigned long size);
  // Deletes p (if any) and nulls the caller's pointer.
  void PoolFree(unsigned char*& p);
  void LockPool() {}
  void UnlockPool() {}

 private:
  unsigned char* buffer_ = nullptr;  // the pool's own optional buffer
};
