#include "tests/support/FakeAgentDaemon.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "tests/support/Wire.h"

std::string FakeAgentDaemon::InitOnly(const std::string& request) {
  return IsInit(request) ? Framed(Sip("{\"OC\":65440,\"ST\":0}")) : "";
}

FakeAgentDaemon::FakeAgentDaemon(const std::string& socketPath, Handler handler) : m_Handler(std::move(handler)) {
  const sockaddr_un address = UnixAddress(socketPath);
  if (socketPath.size() >= sizeof(address.sun_path)) throw std::runtime_error("socket path too long");
  std::filesystem::create_directories(std::filesystem::path(socketPath).parent_path());
  m_Listen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(socketPath.c_str());
  if (bind(m_Listen, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 || listen(m_Listen, 8) != 0) {
    close(m_Listen);
    throw std::runtime_error("cannot listen on " + socketPath);
  }
  m_Thread = std::thread([this] { Serve(); });
}

FakeAgentDaemon::~FakeAgentDaemon() {
  m_Stop = true;
  m_Thread.join();
  close(m_Listen);
  for (int fd : m_Open) close(fd);
}

std::vector<std::string> FakeAgentDaemon::requests() const {
  std::lock_guard<std::mutex> lock(m_Mutex);
  return m_Requests;
}

bool FakeAgentDaemon::push(const std::string& bytes) {
  std::lock_guard<std::mutex> lock(m_Mutex);
  return !m_Open.empty() && WriteAll(m_Open.back(), bytes);
}

// Short polls, so that the destructor is never kept waiting.
void FakeAgentDaemon::Serve() {
  while (!m_Stop) {
    std::vector<pollfd> polled = {{m_Listen, POLLIN, 0}};
    {
      std::lock_guard<std::mutex> lock(m_Mutex);
      for (int fd : m_Open) polled.push_back({fd, POLLIN, 0});
    }
    if (poll(polled.data(), polled.size(), 20) <= 0) continue;
    const int accepted = polled[0].revents != 0 ? accept4(m_Listen, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    if (accepted >= 0) {
      std::lock_guard<std::mutex> lock(m_Mutex);
      m_Open.push_back(accepted);
    }
    for (size_t i = 1; i < polled.size(); ++i)
      if (polled[i].revents != 0) Answer(polled[i].fd);
  }
}

// Clients send whole frames at once, so reading one cannot stall. A
// connection that ends or cannot take its reply is closed.
void FakeAgentDaemon::Answer(int fd) {
  const std::optional<std::string> text = ReadFrame(fd);
  const std::string reply = text ? m_Handler(*text) : "";
  std::lock_guard<std::mutex> lock(m_Mutex);
  if (text) m_Requests.push_back(*text);
  if (text && (reply.empty() || WriteAll(fd, reply))) {
    ++m_Replies;
    return;
  }
  m_Open.erase(std::find(m_Open.begin(), m_Open.end(), fd));
  close(fd);
}
