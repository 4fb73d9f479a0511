#include "runtime/CMemoryPool.h"

CMemoryPool::~CMemoryPool() { PoolFree(buffer_); }

unsigned char* CMemoryPool::PoolAlloc(unsigned long size) { return new unsigned char[size]; }

void CMemoryPool::PoolFree(unsigned char*& p) {
  delete[] p;
  p = nullptr;
}
