#pragma once

// A bare socket client for the simulator's own tests. It frames by hand,
// independently of both the simulator's Frame.cpp and the product's agent
// client, so neither can hide a mistake here.

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

inline bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

inline std::string Sip(const std::string& commands) { return R"({"SIP":{"V":1,"CMD":[)" + commands + "]}}"; }

// The 4-byte little-endian length word, then `payload` as it is.
inline std::string WithLength(uint32_t n, const std::string& payload) {
  return std::string{char(n & 0xFF), char((n >> 8) & 0xFF), char((n >> 16) & 0xFF), char(n >> 24)} + payload;
}
inline std::string Framed(const std::string& text) {
  return WithLength(static_cast<uint32_t>(text.size() + 1), text + '\0');
}

class TestClient {
 public:
  explicit TestClient(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
      close(fd_);
      fd_ = -1;
    }
  }
  ~TestClient() {
    if (fd_ >= 0) close(fd_);
  }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  bool Connected() const { return fd_ >= 0; }
  bool SendBytes(const std::string& bytes) {
    return fd_ >= 0 && send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // Up to `n` bytes: fewer when the peer closes or `timeoutMs` runs out.
  std::string ReadBytes(size_t n, int timeoutMs) {
    std::string got;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (got.size() < n) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      std::string some = ReadSome(static_cast<int>(std::max<long>(left.count(), 0)), n - got.size());
      if (some.empty()) break;
      got += some;
    }
    return got;
  }
  // Whatever arrives in one read within `timeoutMs`.
  std::string ReadSome(int timeoutMs, size_t max = 65536) {
    pollfd poller{fd_, POLLIN, 0};
    if (fd_ < 0 || poll(&poller, 1, timeoutMs) <= 0) return "";
    std::string buffer(std::min<size_t>(max, 65536), '\0');
    ssize_t r = read(fd_, &buffer[0], buffer.size());
    eof_ = eof_ || r == 0;
    return r > 0 ? buffer.substr(0, r) : "";
  }
  // True when the peer closed the connection within `timeoutMs`; what came before is dropped.
  bool ClosedByPeer(int timeoutMs) {
    ReadBytes(SIZE_MAX, timeoutMs);
    return eof_;
  }

  // One frame's text (without the NUL); nothing on time-out, EOF or a frame
  // whose length word and NUL do not agree.
  std::optional<std::string> ReadFrame(int timeoutMs = 5000) {
    std::string word = ReadBytes(4, timeoutMs);
    if (word.size() != 4) return std::nullopt;
    uint32_t n = 0;
    for (int i = 3; i >= 0; --i) n = (n << 8) | static_cast<unsigned char>(word[i]);
    std::string payload = ReadBytes(n, timeoutMs);
    if (n == 0 || payload.size() != n || payload.back() != '\0') return std::nullopt;
    return payload.substr(0, n - 1);
  }
  std::string Exchange(const std::string& text, int timeoutMs = 5000) {
    if (!SendBytes(Framed(text))) return "<send failed>";
    return ReadFrame(timeoutMs).value_or("<no frame>");
  }
  // Registers the connection under the client name "Zx"; the reply text.
  std::string Init(unsigned channelCode) {
    return Exchange(Sip(R"({"OC":65440,"OE":)" + std::to_string(channelCode) + R"(,"CA":0,"DA":{"RAW":[90,120,0]}})"));
  }

 private:
  int fd_ = -1;
  bool eof_ = false;
};
