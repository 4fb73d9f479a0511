#include "runtime/CCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

TEST(CCriticalSectionTest, RecursiveLockOpensOnlyAtItsOwnersLastLeave) {
  CCriticalSection lock;
  ASSERT_TRUE(lock.IsValid());
  lock.Enter();
  lock.Enter();
  lock.Leave();
  std::thread([&] { lock.Leave(); }).join();  // not the owner: no effect
  EXPECT_EQ(1u, lock.RecursionCount());
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    CCriticalSectionGuard guard(lock);
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired);  // still held once
  lock.Leave();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_FALSE(lock.IsHeldByCaller());
}

TEST(CCriticalSectionTest, NestedGuardsKeepACounterConsistentUnderContention) {
  CCriticalSection lock;
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        CCriticalSectionGuard outer(lock);
        CCriticalSectionGuard inner(lock);
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(60000, counter);
}

}  // namespace
