#include "runtime/CThread.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

bool WaitUntil(const std::atomic<bool>& flag, std::chrono::milliseconds limit = 5000ms) {
  auto end = std::chrono::steady_clock::now() + limit;
  while (!flag.load()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

void* SetFlag(void* arg) {
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return arg;
}

void* SleepThenSetFlag(void* arg) {
  std::this_thread::sleep_for(50ms);
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return nullptr;
}

// Spins through a cancellation point until cancelled; the flag tells that
// the cancellation unwound the thread. (Not a blocking call: the thread
// sanitizer loses track of a thread cancelled inside one.)
void* SleepUntilCancelled(void* arg) {
  struct OnUnwind {
    std::atomic<bool>* flag;
    ~OnUnwind() { flag->store(true); }
  } onUnwind{static_cast<std::atomic<bool>*>(arg)};
  for (;;) {
    pthread_testcancel();
    sched_yield();
  }
  return nullptr;
}

constexpr unsigned long kStack = 0x100000;

}  // namespace

TEST(CThreadTest, JoinableThreadRunsWithItsArgumentAndIsJoinedOnce) {
  std::atomic<bool> ran{false};
  CThread thread;
  ASSERT_TRUE(thread.Start(SetFlag, &ran, 0, false, kStack, 0, true));
  EXPECT_NE(thread.GetThreadId(), pthread_t{0});
  EXPECT_TRUE(thread.WaitForTermination());
  EXPECT_TRUE(ran.load());
  EXPECT_EQ(thread.GetThreadId(), pthread_t{0});
  EXPECT_FALSE(thread.WaitForTermination()) << "nothing left to join";
  EXPECT_FALSE(thread.Kill(0)) << "no thread held";
}

TEST(CThreadTest, KillOnJoinableThreadWaitsForItsEnd) {
  std::atomic<bool> done{false};
  CThread thread;
  ASSERT_TRUE(thread.Start(SleepThenSetFlag, &done, 0, false, 0, 0, true));
  EXPECT_TRUE(thread.Kill(0));
  EXPECT_TRUE(done.load()) << "Kill must join, not cancel, a joinable thread";
  EXPECT_EQ(thread.GetThreadId(), pthread_t{0});
}

TEST(CThreadTest, TimeoutOnJoinStillWaitsForTheThread) {
  std::atomic<bool> done{false};
  CThread thread;
  ASSERT_TRUE(thread.Start(SleepThenSetFlag, &done, 0, false, 0, 0, true));
  EXPECT_TRUE(thread.WaitForTermination(10));
  EXPECT_TRUE(done.load());
}

TEST(CThreadTest, DetachedThreads) {
  {
    // Ended on its own: Kill reports it as killed and cancels nothing.
    std::atomic<bool> ran{false};
    CThread thread;
    ASSERT_TRUE(thread.Start(SetFlag, &ran, 0, false, 0, 0, false));
    ASSERT_TRUE(WaitUntil(ran));
    std::this_thread::sleep_for(50ms);  // let it leave the routine
    EXPECT_FALSE(thread.WaitForTermination()) << "a detached thread cannot be joined";
    EXPECT_TRUE(thread.Kill(0));
    EXPECT_EQ(thread.GetThreadId(), pthread_t{0});
    EXPECT_FALSE(thread.Kill(0));
  }
  {
    // Still running: Kill cancels it.
    std::atomic<bool> unwound{false};
    CThread thread;
    ASSERT_TRUE(thread.Start(SleepUntilCancelled, &unwound, 0, false, 0, 0, false));
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(thread.Kill(0));
    EXPECT_TRUE(WaitUntil(unwound)) << "the cancelled thread never unwound";
    EXPECT_EQ(thread.GetThreadId(), pthread_t{0});
  }
}

TEST(CThreadTest, KillAliveThreadReplacesTheOldThreadOnStart) {
  std::atomic<bool> first{false};
  std::atomic<bool> second{false};
  CThread thread(true);
  ASSERT_TRUE(thread.Start(SleepThenSetFlag, &first, 0, false, 0, 0, true));
  ASSERT_TRUE(thread.Start(SetFlag, &second, 0, false, 0, 0, true));
  EXPECT_TRUE(first.load()) << "the first thread was not joined before the second started";
  EXPECT_TRUE(thread.WaitForTermination());
  EXPECT_TRUE(second.load());
}

TEST(CThreadTest, AttributeFailuresRefuseToStart) {
  std::atomic<bool> ran{false};
  CThread thread;
  EXPECT_FALSE(thread.Start(SetFlag, &ran, 1000, false, 0, 0, true)) << "priority beyond SCHED_RR's range";
  EXPECT_FALSE(thread.Start(SetFlag, &ran, 0, false, 1, 0, true)) << "stack below the minimum";
  EXPECT_EQ(thread.GetThreadId(), pthread_t{0});
  std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(ran.load());

  // A valid SCHED_RR priority starts (the policy is inherited unless the
  // caller is allowed more, so this works with and without privileges).
  ASSERT_TRUE(thread.Start(SetFlag, &ran, 63, false, kStack, 0, true));
  EXPECT_TRUE(thread.WaitForTermination());
  EXPECT_TRUE(ran.load());
}
