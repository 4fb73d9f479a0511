#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tests/support/Wire.h"

// A bare client of a Unix stream socket (an agent socket, the simulator's
// control channel). It frames with Wire.h, so it shares nothing with the
// client's channel code or the simulator's framing.
class TestClient {
 public:
  explicit TestClient(const std::string& socketPath) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = UnixAddress(socketPath);
    connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));  // a failure shows in Send
  }
  ~TestClient() { close(fd_); }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  bool Send(const std::string& bytes) { return WriteAll(fd_, bytes); }
  // Up to `n` bytes (SIZE_MAX: until the peer closes) within `timeoutMs`.
  std::string Read(size_t n, int timeoutMs) { return ReadBytes(fd_, n, timeoutMs, &closed_); }
  // The peer has closed the connection (seen by a read).
  bool Closed() const { return closed_; }
  // One frame's text (see ::ReadFrame).
  std::optional<std::string> ReadFrame() { return ::ReadFrame(fd_); }
  // Sends `text` framed; the reply's text, or "<no frame>".
  std::string Exchange(const std::string& text) { return Send(Framed(text)) ? ReadFrame().value_or("<no frame>") : "<no frame>"; }

 private:
  int fd_;
  bool closed_ = false;
};
