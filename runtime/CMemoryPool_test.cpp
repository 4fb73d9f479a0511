#include "runtime/CMemoryPool.h"

#include <gtest/gtest.h>

TEST(CMemoryPoolTest, AllocatesUsableBuffersAndFreeNullsThePointer) {
  CMemoryPool pool;
  unsigned char* p = pool.PoolAlloc(64);
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 64; ++i) p[i] = static_cast<unsigned char>(i);  // ASan checks the extent
  EXPECT_EQ(p[63], 63);
  pool.PoolFree(p);
  EXPECT_EQ(p, nullptr);
  pool.PoolFree(p);  // freeing null is a no-op
  EXPECT_EQ(p, nullptr);
  pool.LockPool();
  pool.UnlockPool();
}
