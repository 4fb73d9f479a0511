#pragma once

// A scripted stand-in for the agent daemon: listens on one Unix socket,
// reads length-framed requests and answers each with whatever the test's
// handler returns, byte for byte and piece by piece. Written apart from the
// client's own framing code so that tests check one against the other.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

class FakeAgentDaemon {
 public:
  struct Reply {
    std::vector<std::string> pieces;  // raw bytes, written one after another
    int pauseMs = 0;                  // pause before every piece but the first
    bool closeAfter = false;          // drop the connection after replying
  };
  using Handler = std::function<Reply(const std::string& request)>;

  // Length word (text + NUL), text, NUL.
  static std::string Frame(const std::string& text) {
    const uint32_t length = static_cast<uint32_t>(text.size() + 1);
    std::string frame(reinterpret_cast<const char*>(&length), 4);
    frame += text;
    frame.push_back('\0');
    return frame;
  }
  static Reply Whole(const std::string& text) { return Reply{{Frame(text)}, 0, false}; }

  // Answer to the init-channel command: a data block carrying 7 at offset 65.
  static std::string InitReply() {
    std::string raw;
    for (int i = 0; i < 218; ++i) raw += (i ? "," : "") + std::to_string(i == 65 ? 7 : 0);
    return "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":65440,\"ST\":0,\"DA\":{\"RAW\":[" + raw + "]}}]}}";
  }

  FakeAgentDaemon(const std::string& socketPath, Handler handler) : m_Handler(std::move(handler)) {
    m_Listen = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof(addr.sun_path)) throw std::runtime_error("socket path too long");
    std::memcpy(addr.sun_path, socketPath.c_str(), socketPath.size());
    unlink(socketPath.c_str());
    if (bind(m_Listen, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 || listen(m_Listen, 8) != 0)
      throw std::runtime_error("cannot listen on " + socketPath);
    m_Thread = std::thread([this] { Serve(); });
  }

  ~FakeAgentDaemon() {
    m_Stop = true;
    m_Thread.join();
    close(m_Listen);
  }

  std::vector<std::string> requests() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Requests;
  }
  int connections() const { return m_Connections.load(); }

  // True when the request is an init-channel command.
  static bool IsInit(const std::string& request) { return request.find("\"OC\":65440") != std::string::npos; }

 private:
  bool WaitReadable(int fd) {
    while (!m_Stop) {
      struct pollfd p = {fd, POLLIN, 0};
      if (poll(&p, 1, 20) > 0) return true;
    }
    return false;
  }

  bool ReadExactly(int fd, char* data, size_t size) {
    size_t got = 0;
    while (got < size) {
      if (!WaitReadable(fd)) return false;
      const ssize_t n = read(fd, data + got, size - got);
      if (n <= 0) return false;
      got += static_cast<size_t>(n);
    }
    return true;
  }

  void Serve() {
    while (WaitReadable(m_Listen)) {
      const int fd = accept(m_Listen, nullptr, nullptr);
      if (fd < 0) continue;
      ++m_Connections;
      ServeConnection(fd);
      close(fd);
    }
  }

  void ServeConnection(int fd) {
    for (;;) {
      uint32_t length = 0;
      if (!ReadExactly(fd, reinterpret_cast<char*>(&length), 4)) return;
      std::string payload(length, '\0');
      if (length > 0 && !ReadExactly(fd, &payload[0], length)) return;
      const std::string text(payload.c_str());
      {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Requests.push_back(text);
      }
      const Reply reply = m_Handler(text);
      for (size_t i = 0; i < reply.pieces.size(); ++i) {
        if (i > 0 && reply.pauseMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(reply.pauseMs));
        const std::string& piece = reply.pieces[i];
        if (send(fd, piece.data(), piece.size(), MSG_NOSIGNAL) < 0) return;
      }
      if (reply.closeAfter) return;
    }
  }

  Handler m_Handler;
  int m_Listen = -1;
  std::atomic<bool> m_Stop{false};
  std::atomic<int> m_Connections{0};
  mutable std::mutex m_Mutex;
  std::vector<std::string> m_Requests;
  std::thread m_Thread;
};
