#pragma once

// A scripted stand-in for one agent daemon socket: serves every connection
// on its own thread, reads length-framed requests and answers each with the
// raw bytes the test's handler returns. Tests can also push raw bytes down
// (or hang up) the newest connection, which is how events reach a client.
// Written apart from the client's own framing code so that tests check one
// against the other.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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
  // Raw reply bytes for one request (called on any connection's thread);
  // empty sends nothing.
  using Handler = std::function<std::string(const std::string& request)>;

  // Length word (text + NUL), text, NUL.
  static std::string Frame(const std::string& text) {
    const uint32_t length = static_cast<uint32_t>(text.size() + 1);
    return std::string(reinterpret_cast<const char*>(&length), 4) + text + std::string(1, '\0');
  }
  static bool IsInit(const std::string& request) { return request.find("\"OC\":65440") != std::string::npos; }
  // Answers init commands, ignores everything else.
  static std::string InitOnly(const std::string& request) {
    return IsInit(request) ? Frame("{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":65440,\"ST\":0}]}}") : "";
  }

  explicit FakeAgentDaemon(const std::string& socketPath, Handler handler = InitOnly) : m_Handler(std::move(handler)) {
    m_Listen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
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

  // Stops listening and drops every connection; the socket file stays.
  ~FakeAgentDaemon() {
    m_Stop = true;
    m_Thread.join();
    close(m_Listen);
  }

  std::vector<std::string> requests() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Requests;
  }
  // Replies completely sent: once this counts a channel's init command,
  // bytes pushed afterwards follow that reply.
  int replies() const { return m_Replies.load(); }

  // Raw bytes down the newest connection.
  bool push(const std::string& bytes) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_Open.empty() &&
           send(m_Open.back(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  // The daemon's side of the newest connection goes away.
  void hangUp() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_Open.empty()) shutdown(m_Open.back(), SHUT_RDWR);
  }

 private:
  bool WaitReadable(int fd) {
    for (struct pollfd p = {fd, POLLIN, 0}; !m_Stop; p.revents = 0)
      if (poll(&p, 1, 20) > 0) return true;
    return false;
  }
  // Clients send whole frames at once, so a blocking read cannot stall.
  bool Read(int fd, void* data, size_t size) {
    return size == 0 || (WaitReadable(fd) && recv(fd, data, size, MSG_WAITALL) == static_cast<ssize_t>(size));
  }

  void Serve() {
    std::vector<std::thread> workers;
    while (WaitReadable(m_Listen)) {
      const int fd = accept4(m_Listen, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) workers.emplace_back([this, fd] { ServeConnection(fd); });
    }
    for (std::thread& worker : workers) worker.join();
  }

  void ServeConnection(int fd) {
    WithLock([&] { m_Open.push_back(fd); });
    uint32_t length = 0;
    while (Read(fd, &length, 4)) {
      std::string payload(length, '\0');
      if (!Read(fd, &payload[0], length)) break;
      const std::string text(payload.c_str());
      WithLock([&] { m_Requests.push_back(text); });
      const std::string reply = m_Handler(text);
      if (!reply.empty() && send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) break;
      ++m_Replies;
    }
    WithLock([&] {
      m_Open.erase(std::find(m_Open.begin(), m_Open.end(), fd));
      close(fd);
    });
  }

  template <typename F>
  void WithLock(F f) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    f();
  }

  Handler m_Handler;
  int m_Listen = -1;
  std::atomic<bool> m_Stop{false};
  std::atomic<int> m_Replies{0};
  mutable std::mutex m_Mutex;
  std::vector<int> m_Open;  // connections being served, oldest first
  std::vector<std::string> m_Requests;
  std::thread m_Thread;
};
