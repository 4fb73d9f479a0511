#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Polls `condition` every few milliseconds until it holds (true) or `limitMs`
// has passed (false); it is always asked at least once.
inline bool WaitUntil(const std::function<bool()>& condition, int limitMs = 10000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}
