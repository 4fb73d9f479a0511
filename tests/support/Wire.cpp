#include "tests/support/Wire.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

std::string Sip(const std::string& commands, int version) {
  return "{\"SIP\":{\"V\":" + std::to_string(version) + ",\"CMD\":[" + commands + "]}}";
}

// Spelt out byte by byte: the test side must not share the host's byte order by accident.
std::string LengthWord(uint32_t n) {
  return std::string{char(n & 0xFF), char((n >> 8) & 0xFF), char((n >> 16) & 0xFF), char(n >> 24)};
}

std::string Framed(const std::string& text) { return LengthWord(static_cast<uint32_t>(text.size() + 1)) + text + '\0'; }

sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  return address;
}

bool WriteAll(int fd, const std::string& bytes) {
  return fd >= 0 && send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string ReadBytes(int fd, size_t n, int timeoutMs, bool* closed) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  std::string got;
  char buffer[65536];
  for (pollfd poller{fd, POLLIN, 0}; fd >= 0 && got.size() < n; poller.revents = 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (poll(&poller, 1, static_cast<int>(std::max<long>(left.count(), 0))) <= 0) break;
    const ssize_t some = read(fd, buffer, std::min(sizeof buffer, n - got.size()));
    if (some == 0 && closed != nullptr) *closed = true;
    if (some <= 0) break;
    got.append(buffer, some);
  }
  return got;
}

std::optional<std::string> ReadFrame(int fd, int timeoutMs) {
  const std::string word = ReadBytes(fd, 4, timeoutMs);
  if (word.size() != 4) return std::nullopt;
  uint32_t n = 0;
  for (int i = 3; i >= 0; --i) n = (n << 8) | static_cast<unsigned char>(word[i]);
  const std::string payload = ReadBytes(fd, n, timeoutMs);
  if (n == 0 || payload.size() != n || payload.back() != '\0') return std::nullopt;
  return payload.substr(0, n - 1);
}
