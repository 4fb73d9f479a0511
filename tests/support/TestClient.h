#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tests/support/Wire.h"

// A bare socket client of an agent socket (or of any Unix stream socket). It
// frames with Wire.h, so it shares nothing with the client's channel code or
// the simulator's framing.
class TestClient {
 public:
  explicit TestClient(const std::string& socketPath) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = UnixAddress(socketPath);
    if (fd_ >= 0 && connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
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
  bool SendBytes(const std::string& bytes) { return WriteAll(fd_, bytes); }
  // Up to `n` bytes: fewer when the peer closes or `timeoutMs` runs out.
  std::string ReadBytes(size_t n, int timeoutMs) { return ::ReadBytes(fd_, n, timeoutMs, &closed_); }
  // Whatever arrives in one read within `timeoutMs`.
  std::string ReadSome(int timeoutMs, size_t max = 65536) { return ::ReadSome(fd_, timeoutMs, max, &closed_); }
  // True when the peer closed the connection within `timeoutMs`; what came before is dropped.
  bool ClosedByPeer(int timeoutMs) {
    ReadBytes(SIZE_MAX, timeoutMs);
    return closed_;
  }
  // One frame's text (see ::ReadFrame).
  std::optional<std::string> ReadFrame(int timeoutMs = 5000) { return ::ReadFrame(fd_, timeoutMs); }
  // Sends `text` framed; the reply's text, "<send failed>" or "<no frame>".
  std::string Exchange(const std::string& text, int timeoutMs = 5000) {
    return SendBytes(Framed(text)) ? ReadFrame(timeoutMs).value_or("<no frame>") : "<send failed>";
  }
  // Registers the connection under the client name "Zx"; the reply text.
  std::string Init(unsigned channelCode) {
    return Exchange(Sip(R"({"OC":65440,"OE":)" + std::to_string(channelCode) + R"(,"CA":0,"DA":{"RAW":[90,120,0]}})"));
  }

 private:
  int fd_ = -1;
  bool closed_ = false;
};
