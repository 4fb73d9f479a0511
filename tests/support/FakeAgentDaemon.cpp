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
bool FakeAgentDaemon::WaitReadable(int fd) const {
  for (pollfd p = {fd, POLLIN, 0}; !m_Stop; p.revents = 0)
    if (poll(&p, 1, 20) > 0) return true;
  return false;
}

void FakeAgentDaemon::Serve() {
  std::vector<std::thread> workers;
  while (WaitReadable(m_Listen)) {
    const int fd = accept4(m_Listen, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) workers.emplace_back([this, fd] { ServeConnection(fd); });
  }
  for (std::thread& worker : workers) worker.join();
}

void FakeAgentDaemon::ServeConnection(int fd) {
  {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Open.push_back(fd);
  }
  // Clients send whole frames at once, so reading one cannot stall.
  for (std::optional<std::string> text; WaitReadable(fd) && (text = ReadFrame(fd));) {
    {
      std::lock_guard<std::mutex> lock(m_Mutex);
      m_Requests.push_back(*text);
    }
    const std::string reply = m_Handler(*text);
    if (!reply.empty() && !WriteAll(fd, reply)) break;
    ++m_Replies;
  }
  std::lock_guard<std::mutex> lock(m_Mutex);
  m_Open.erase(std::find(m_Open.begin(), m_Open.end(), fd));
  close(fd);
}
