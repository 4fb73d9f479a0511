#include "tests/support/AgentSimulator.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "runtime/CSystemRoot.h"

#ifndef ZX_AGENT_SIM
#error "ZX_AGENT_SIM (path of the agent-sim binary) must be defined by the build"
#endif

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kControlSocket = "/run/agent-sim.ctl";

long StatusField(const std::string& status, const std::string& key) {
  std::string needle = " " + key + "=";
  size_t at = status.find(needle);
  if (at == std::string::npos) return -1;
  return std::strtol(status.c_str() + at + needle.size(), nullptr, 10);
}

}  // namespace

AgentSimulator::AgentSimulator() : AgentSimulator(Options()) {}

AgentSimulator::AgentSimulator(Options options) : options_(std::move(options)) {
  const char* old = std::getenv(CSystemRoot::kEnvironmentVariable);
  hadOldRoot_ = old != nullptr;
  if (hadOldRoot_) oldRoot_ = old;
  // Short on purpose: socket paths must fit into sockaddr_un.
  std::string pattern = "/tmp/zxsim-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "AgentSimulator: mkdtemp failed: " << std::strerror(errno);
    return;
  }
  root_ = pattern;
  recordFile_ = root_ + "/agent-sim.requests";
  setenv(CSystemRoot::kEnvironmentVariable, root_.c_str(), 1);
  if (options_.profile.compare(0, 1, "{") == 0) {
    const std::string file = root_ + "/profile.json";
    std::ofstream(file) << options_.profile;
    options_.profile = file;
  }
  if (!launch()) ADD_FAILURE() << "AgentSimulator: agent-sim did not come up under " << root_;
}

AgentSimulator::~AgentSimulator() {
  if (pid_ > 0) terminate(SIGTERM);
  if (hadOldRoot_) setenv(CSystemRoot::kEnvironmentVariable, oldRoot_.c_str(), 1);
  else unsetenv(CSystemRoot::kEnvironmentVariable);
  if (!root_.empty()) {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
}

std::string AgentSimulator::profilePath() const {
  if (options_.profile.find('/') != std::string::npos) return options_.profile;
  return std::string(ZX_SOURCE_DIR) + "/tools/agent-sim/profiles/" + options_.profile + ".json";
}

bool AgentSimulator::launch() {
  std::vector<std::string> args = {ZX_AGENT_SIM, "--root", root_};
  if (!options_.profile.empty()) {
    args.push_back("--profile");
    args.push_back(profilePath());
  }
  if (options_.record) {
    args.push_back("--record");
    args.push_back(recordFile_);
  }
  args.insert(args.end(), options_.args.begin(), options_.args.end());
  // Built before fork: the child of a threaded test may only exec.
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);

  pid_ = fork();
  if (pid_ < 0) return false;
  if (pid_ == 0) {
    execv(argv[0], argv.data());
    _exit(127);
  }
  auto deadline = Clock::now() + std::chrono::milliseconds(options_.timeoutMs);
  while (Clock::now() < deadline) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {  // died at start (bad profile, ...)
      pid_ = -1;
      return false;
    }
    if (StatusField(query("status"), "up") == 1) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

std::string AgentSimulator::query(const std::string& command) const {
  if (pid_ <= 0) return "";
  std::string path = root_ + kControlSocket;
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) return "";
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return "";
  std::string answer;
  std::string line = command + "\n";
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
      send(fd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size())) {
    auto deadline = Clock::now() + std::chrono::milliseconds(options_.timeoutMs);
    char buffer[4096];
    while (answer.find('\n') == std::string::npos) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      pollfd poller{fd, POLLIN, 0};
      if (left <= 0 || poll(&poller, 1, static_cast<int>(left)) <= 0) break;
      ssize_t got = read(fd, buffer, sizeof(buffer));
      if (got <= 0) break;
      answer.append(buffer, got);
    }
  }
  close(fd);
  size_t end = answer.find('\n');
  return end == std::string::npos ? "" : answer.substr(0, end);
}

bool AgentSimulator::control(const std::string& command) { return query(command).compare(0, 2, "ok") == 0; }

bool AgentSimulator::running() const { return StatusField(query("status"), "up") == 1; }

bool AgentSimulator::stop() { return control("stop"); }

bool AgentSimulator::start() { return control("start"); }

bool AgentSimulator::waitForStatus(const std::string& key, long atLeast) {
  auto deadline = Clock::now() + std::chrono::milliseconds(options_.timeoutMs);
  do {
    if (StatusField(query("status"), key) >= atLeast) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  } while (Clock::now() < deadline && pid_ > 0);
  return false;
}

bool AgentSimulator::waitForEventChannels(int count) { return waitForStatus("event-channels", count); }

bool AgentSimulator::waitForRequests(size_t count) {
  auto deadline = Clock::now() + std::chrono::milliseconds(options_.timeoutMs);
  do {
    if (requests().size() >= count) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  } while (Clock::now() < deadline && pid_ > 0);
  return false;
}

std::vector<std::string> AgentSimulator::requests() const {
  std::vector<std::string> lines;
  std::ifstream in(recordFile_);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void AgentSimulator::clearRequests() {
  // The simulator appends, so truncating under it is safe.
  if (truncate(recordFile_.c_str(), 0) != 0 && errno != ENOENT)
    ADD_FAILURE() << "AgentSimulator: cannot truncate " << recordFile_;
}

int AgentSimulator::terminate(int signal) {
  if (pid_ <= 0) return -1;
  kill(pid_, signal);
  int status = 0;
  pid_t done = 0;
  auto deadline = Clock::now() + std::chrono::milliseconds(options_.timeoutMs);
  while ((done = waitpid(pid_, &status, WNOHANG)) == 0 && Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  int result = -1;
  if (done == pid_) {
    result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  } else {
    kill(pid_, SIGKILL);  // never leave a stray daemon or a zombie behind
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  return result;
}
