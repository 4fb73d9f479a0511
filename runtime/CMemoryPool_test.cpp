#include "runtime/CMemoryPool.h"

#include <gtest/gtest.h>

// Nothing in the program allocates through the pool; this pins its contract.
TEST(CMemoryPoolTest, AllocatesUsableBuffersAndFreeNullsThePointer) {
  CMemoryPool pool;
  unsigned char* p = pool.PoolAlloc(64);
  ASSERT_NE(nullptr, p);
  p[63] = 63;  // the address sanitizer checks the extent
  pool.PoolFree(p);
  EXPECT_EQ(nullptr, p);
}
