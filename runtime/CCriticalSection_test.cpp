#include "runtime/CCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

TEST(CCriticalSectionTest, RecursiveEnterNeedsAsManyLeaves) {
  CCriticalSection lock;
  ASSERT_TRUE(lock.IsValid());
  lock.Enter();
  lock.Enter();
  EXPECT_EQ(2u, lock.RecursionCount());

  std::atomic<bool> acquired{false};
  lock.Leave();
  // Still held once: another thread must block.
  std::thread other([&] {
    lock.Enter();
    acquired = true;
    lock.Leave();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired);
  lock.Leave();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_FALSE(lock.IsHeldByCaller());
}

TEST(CCriticalSectionTest, LeaveFromAnotherThreadChangesNothing) {
  CCriticalSection lock;
  lock.Enter();
  std::thread([&] {
    lock.Leave();
    EXPECT_FALSE(lock.IsHeldByCaller());
  }).join();
  EXPECT_TRUE(lock.IsHeldByCaller());
  EXPECT_EQ(1u, lock.RecursionCount());
  lock.Leave();
  EXPECT_FALSE(lock.IsHeldByCaller());
}

TEST(CCriticalSectionTest, CleanupHandlerReleasesWholeRecursion) {
  CCriticalSection lock;
  lock.Enter();
  lock.Enter();
  lock.Enter();
  CCriticalSection::CleanupHandlerForCritSecMutex(&lock);
  EXPECT_FALSE(lock.IsHeldByCaller());
  bool acquired = false;
  std::thread([&] {
    lock.Enter();
    acquired = lock.RecursionCount() == 1;
    lock.Leave();
  }).join();
  EXPECT_TRUE(acquired);
}

TEST(CCriticalSectionTest, CountersStayConsistentUnderContention) {
  CCriticalSection lock;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      CCriticalSectionGuard outer(lock);
      CCriticalSectionGuard inner(lock);
      ++counter;
    }
  };
  std::thread a(work), b(work), c(work);
  a.join();
  b.join();
  c.join();
  EXPECT_EQ(60000, counter);
}

TEST(CCriticalSectionTest, GuardReleasesOnException) {
  CCriticalSection lock;
  try {
    CCriticalSectionGuard guard(lock);
    throw 1;
  } catch (int) {
  }
  EXPECT_FALSE(lock.IsHeldByCaller());
  bool acquired = false;
  std::thread([&] {
    lock.Enter();
    acquired = true;
    lock.Leave();
  }).join();
  EXPECT_TRUE(acquired);
}

}  // namespace
