#include "runtime/CThread.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

void* SleepThenSetFlag(void* arg) {
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return arg;
}

// Sets the flag only when the cancellation unwinds it. It spins rather than
// blocks: the thread sanitizer loses track of a thread cancelled inside a
// blocking call.
void* SpinUntilCancelled(void* arg) {
  struct OnUnwind {
    std::atomic<bool>* flag;
    ~OnUnwind() { flag->store(true); }
  } onUnwind{static_cast<std::atomic<bool>*>(arg)};
  while (true) {
    pthread_testcancel();
    sched_yield();
  }
}

// Bad attributes are refused. The rows start threads as the event thread
// starts its own (a priority, a stack size). A joinable thread is waited for,
// never cancelled, whichever way it is ended (also by a restart); a detached
// one that still runs is cancelled, one that has ended counts as killed.
TEST(CThreadTest, StartRefusesBadAttributesAndEveryWayOfEndingAThreadWorks) {
  CThread refused;
  EXPECT_FALSE(refused.Start(SleepThenSetFlag, nullptr, 1000, false, 0, 0, true));  // beyond SCHED_RR's range
  EXPECT_FALSE(refused.Start(SleepThenSetFlag, nullptr, 0, false, 1, 0, true));     // stack below the minimum
  EXPECT_FALSE(refused.Kill(0));  // no thread to kill
  enum Way { kWait, kWaitWithTimeout, kKill, kRestart };
  struct { void* (*routine)(void*); bool waitable; Way way; bool result; } cases[] = {
      {SleepThenSetFlag, true, kWait, true},    {SleepThenSetFlag, true, kWaitWithTimeout, true},
      {SleepThenSetFlag, true, kKill, true},    {SleepThenSetFlag, true, kRestart, true},
      {SpinUntilCancelled, false, kKill, true}, {SleepThenSetFlag, false, kKill, true},
      {SleepThenSetFlag, false, kWait, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    std::atomic<bool> flag{false}, next{false};
    CThread thread(true);
    ASSERT_TRUE(thread.Start(c.routine, &flag, 63, false, 0x100000, 0, c.waitable));
    if (!c.waitable && c.routine == SleepThenSetFlag) {  // has ended and left the routine
      ASSERT_TRUE(WaitUntil([&] { return flag.load(); }));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(c.result, c.way == kWait            ? thread.WaitForTermination()
                        : c.way == kWaitWithTimeout ? thread.WaitForTermination(10)
                        : c.way == kKill            ? thread.Kill(0)
                                                    : thread.Start(SleepThenSetFlag, &next, 0, false, 0, 0, true));
    EXPECT_TRUE(c.waitable ? flag.load() : WaitUntil([&] { return flag.load(); }));
    EXPECT_EQ(c.way == kRestart, thread.WaitForTermination());  // only a restarted thread is left to join
  }
}

}  // namespace
