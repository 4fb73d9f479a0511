#include "runtime/CThread.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

using namespace std::chrono_literals;

void* SetFlag(void* arg) {
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return arg;
}

void* SleepThenSetFlag(void* arg) {
  std::this_thread::sleep_for(50ms);
  return SetFlag(arg);
}

// Sets the flag only when the cancellation unwinds it. It spins rather than
// blocks: the thread sanitizer loses track of a thread cancelled inside a
// blocking call.
void* SpinUntilCancelled(void* arg) {
  struct OnUnwind {
    void* flag;
    ~OnUnwind() { SetFlag(flag); }
  } onUnwind{arg};
  while (true) {
    pthread_testcancel();
    sched_yield();
  }
}

TEST(CThreadTest, StartRefusesBadAttributesAndAJoinableThreadIsJoinedOnce) {
  std::atomic<bool> ran{false};
  CThread thread;
  EXPECT_FALSE(thread.Start(SetFlag, &ran, 1000, false, 0, 0, true));  // beyond SCHED_RR's range
  EXPECT_FALSE(thread.Start(SetFlag, &ran, 0, false, 1, 0, true));     // stack below the minimum
  EXPECT_EQ(pthread_t{0}, thread.GetThreadId());
  // The policy is inherited unless the caller may set it, so a valid
  // priority starts with and without privileges.
  ASSERT_TRUE(thread.Start(SetFlag, &ran, 63, false, 0x100000, 0, true));
  EXPECT_TRUE(thread.WaitForTermination());
  EXPECT_TRUE(ran.load());
  EXPECT_EQ(pthread_t{0}, thread.GetThreadId());
  EXPECT_FALSE(thread.WaitForTermination());  // nothing left to join
  EXPECT_FALSE(thread.Kill(0));
}

// Kill, a wait with a timeout and a restart each wait for the joinable
// thread to end; none cancels it or returns early.
TEST(CThreadTest, EveryWayOfEndingAJoinableThreadWaitsForIt) {
  for (int way = 0; way < 3; ++way) {
    SCOPED_TRACE(way);
    std::atomic<bool> done{false}, next{false};
    CThread thread(true);
    ASSERT_TRUE(thread.Start(SleepThenSetFlag, &done, 0, false, 0, 0, true));
    EXPECT_TRUE(way == 0   ? thread.Kill(0)
                : way == 1 ? thread.WaitForTermination(10)
                           : thread.Start(SetFlag, &next, 0, false, 0, 0, true));
    EXPECT_TRUE(done.load());
    EXPECT_EQ(way == 2, thread.WaitForTermination());
  }
}

TEST(CThreadTest, KillOnDetachedThreadThatEndedOrStillRuns) {
  {
    // Ended on its own: counts as killed, nothing is cancelled.
    std::atomic<bool> ran{false};
    CThread thread;
    ASSERT_TRUE(thread.Start(SetFlag, &ran, 0, false, 0, 0, false));
    ASSERT_TRUE(WaitUntil([&] { return ran.load(); }, 5000));
    std::this_thread::sleep_for(50ms);  // let it leave the routine
    EXPECT_FALSE(thread.WaitForTermination());  // a detached thread cannot be joined
    EXPECT_TRUE(thread.Kill(0));
    EXPECT_FALSE(thread.Kill(0));
  }
  std::atomic<bool> unwound{false};
  CThread thread;
  ASSERT_TRUE(thread.Start(SpinUntilCancelled, &unwound, 0, false, 0, 0, false));
  EXPECT_TRUE(thread.Kill(0));
  EXPECT_TRUE(WaitUntil([&] { return unwound.load(); }, 5000)) << "the cancelled thread never unwound";
}

}  // namespace
