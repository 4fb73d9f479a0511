#pragma once

// A bare socket client for the simulator's own tests. It frames and decodes
// by hand, independently of both the simulator's Frame.cpp and the product's
// agent client, so neither can hide a mistake here.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <string>

#include <rapidjson/document.h>

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
  bool Send(const std::string& text) {
    uint32_t n = static_cast<uint32_t>(text.size() + 1);
    std::string frame = {char(n & 0xFF), char((n >> 8) & 0xFF), char((n >> 16) & 0xFF), char(n >> 24)};
    frame += text;
    frame.push_back('\0');
    return SendBytes(frame);
  }

  // Up to `n` bytes: fewer when the peer closes or `timeoutMs` runs out.
  std::string ReadBytes(size_t n, int timeoutMs) {
    std::string got;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (fd_ >= 0 && got.size() < n) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd poller{fd_, POLLIN, 0};
      if (left.count() <= 0 || poll(&poller, 1, static_cast<int>(left.count())) <= 0) break;
      char buffer[4096];
      ssize_t r = read(fd_, buffer, std::min(sizeof(buffer), n - got.size()));
      if (r <= 0) {
        eof_ = r == 0;
        break;
      }
      got.append(buffer, r);
    }
    return got;
  }
  // Whatever arrives in one read within `timeoutMs`.
  std::string ReadSome(int timeoutMs) {
    pollfd poller{fd_, POLLIN, 0};
    if (fd_ < 0 || poll(&poller, 1, timeoutMs) <= 0) return "";
    char buffer[65536];
    ssize_t r = read(fd_, buffer, sizeof(buffer));
    if (r == 0) eof_ = true;
    return r > 0 ? std::string(buffer, r) : "";
  }

  static uint32_t LengthOf(const std::string& bytes) {
    uint32_t n = 0;
    for (int i = 3; i >= 0; --i) n = (n << 8) | static_cast<unsigned char>(bytes[i]);
    return n;
  }

  // One frame's text (without the NUL); nothing on time-out, EOF or a frame
  // whose length word and NUL do not agree.
  std::optional<std::string> ReadFrame(int timeoutMs = 5000) {
    std::string word = ReadBytes(4, timeoutMs);
    if (word.size() != 4) return std::nullopt;
    uint32_t n = LengthOf(word);
    if (n == 0 || n > (1u << 24)) return std::nullopt;
    std::string payload = ReadBytes(n, timeoutMs);
    if (payload.size() != n || payload.back() != '\0') return std::nullopt;
    payload.pop_back();
    return payload;
  }

  std::string Exchange(const std::string& text, int timeoutMs = 5000) {
    if (!Send(text)) return "<send failed>";
    return ReadFrame(timeoutMs).value_or("<no frame>");
  }

  // True when the peer closed the connection within `timeoutMs`.
  bool ClosedByPeer(int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!eof_ && std::chrono::steady_clock::now() < deadline) ReadSome(20);
    return eof_;
  }

  // Registers the connection the way the product's clients do.
  std::string Init(unsigned channelCode, const std::string& name = "simtest") {
    std::string raw;
    for (size_t i = 0; i < 218; ++i)
      raw += (i ? "," : "") + std::to_string(i < name.size() ? static_cast<unsigned char>(name[i]) : 0);
    return Exchange(R"({"SIP":{"V":1,"CMD":[{"OC":65440,"OE":)" + std::to_string(channelCode) +
                    R"(,"CA":0,"DA":{"RAW":[)" + raw + "]}}]}}");
  }

 private:
  int fd_ = -1;
  bool eof_ = false;
};

// The first command of a reply text, parsed; a null value when it is none.
inline rapidjson::Document ParseReply(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  return document;
}

inline const rapidjson::Value& FirstCommand(const rapidjson::Document& reply) {
  static const rapidjson::Value kNull;
  if (!reply.IsObject() || !reply.HasMember("SIP") || !reply["SIP"].IsObject() || !reply["SIP"].HasMember("CMD") ||
      !reply["SIP"]["CMD"].IsArray() || reply["SIP"]["CMD"].Empty())
    return kNull;
  return reply["SIP"]["CMD"][0];
}
