#include "runtime/CCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

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
    std::lock_guard<CCriticalSection> outer(lock);
    std::lock_guard<CCriticalSection> inner(lock);  // recursion on the new owner
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired);  // still held once
  lock.Leave();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_FALSE(lock.IsHeldByCaller());
}
