#pragma once

// A scripted stand-in for one agent daemon socket: one thread serves every
// connection, reads framed requests and answers each with the raw bytes the
// test's handler returns. Tests can also push raw bytes down the
// newest connection, which is how events reach a client.

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeAgentDaemon {
 public:
  // Raw reply bytes for one request (called on any connection's thread);
  // empty sends nothing.
  using Handler = std::function<std::string(const std::string& request)>;

  static bool IsInit(const std::string& request) { return request.find("\"OC\":65440") != std::string::npos; }
  // Answers init commands, ignores everything else.
  static std::string InitOnly(const std::string& request);

  // Listens on `socketPath` (parent directories made); throws when it cannot.
  explicit FakeAgentDaemon(const std::string& socketPath, Handler handler = InitOnly);
  // Stops listening and drops every connection; the socket file stays.
  ~FakeAgentDaemon();
  FakeAgentDaemon(const FakeAgentDaemon&) = delete;
  FakeAgentDaemon& operator=(const FakeAgentDaemon&) = delete;

  std::vector<std::string> requests() const;
  // Replies completely sent: once this counts a channel's init command,
  // bytes pushed afterwards follow that reply.
  int replies() const { return m_Replies.load(); }

  // Raw bytes down the newest connection.
  bool push(const std::string& bytes);

 private:
  void Serve();
  void Answer(int fd);

  Handler m_Handler;
  int m_Listen = -1;
  std::atomic<bool> m_Stop{false};
  std::atomic<int> m_Replies{0};
  mutable std::mutex m_Mutex;
  std::vector<int> m_Open;  // connections being served, oldest first
  std::vector<std::string> m_Requests;
  std::thread m_Thread;
};
