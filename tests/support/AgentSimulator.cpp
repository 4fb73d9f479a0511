#include "tests/support/AgentSimulator.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/TestClient.h"
#include "tests/support/WaitUntil.h"

#ifndef ZX_AGENT_SIM
#error "ZX_AGENT_SIM (path of the agent-sim binary) must be defined by the build"
#endif

AgentSimulator::AgentSimulator() : AgentSimulator(Options()) {}

AgentSimulator::AgentSimulator(Options options) : options_(std::move(options)) {
  recordFile_ = path("/agent-sim.requests");
  if (options_.profile.compare(0, 1, "{") == 0) {
    std::ofstream(path("/profile.json")) << options_.profile;
    options_.profile = path("/profile.json");
  } else if (!options_.profile.empty() && options_.profile.find('/') == std::string::npos) {
    options_.profile = std::string(ZX_SOURCE_DIR) + "/tools/agent-sim/profiles/" + options_.profile + ".json";
  }
  if (!launch())
    ADD_FAILURE() << "AgentSimulator: agent-sim did not come up under " << root() << "\n"
                  << (process_ ? process_->wait(0).err : "");
}

AgentSimulator::~AgentSimulator() { terminate(SIGTERM); }

// agent-sim writes one byte to the ready pipe once every socket accepts, and
// the pipe reads as closed when it dies first (a bad profile, say).
bool AgentSimulator::launch() {
  std::vector<std::string> args = {ZX_AGENT_SIM, "--root", root()};
  if (!options_.profile.empty()) args.insert(args.end(), {"--profile", options_.profile});
  if (options_.record) args.insert(args.end(), {"--record", recordFile_});
  args.insert(args.end(), options_.args.begin(), options_.args.end());
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return false;
  args.insert(args.end(), {"--ready-fd", std::to_string(ready[1])});
  ProgramRun::Options run;
  run.timeLimitMs = 0;
  run.inChild = [fd = ready[1]] { fcntl(fd, F_SETFD, 0); };  // passed on to agent-sim
  process_ = std::make_unique<ProgramRun>(args, run);
  close(ready[1]);
  pollfd poller{ready[0], POLLIN, 0};
  char byte = 0;
  const bool up = poll(&poller, 1, options_.timeoutMs) > 0 && read(ready[0], &byte, 1) == 1;
  close(ready[0]);
  return up;
}

std::string AgentSimulator::query(const std::string& command) const {
  if (pid() <= 0) return "";
  TestClient channel(path("/run/agent-sim.ctl"));
  std::string answer;
  if (channel.SendBytes(command + "\n")) {
    std::string some;
    do answer += some = channel.ReadSome(options_.timeoutMs);
    while (!some.empty() && answer.find('\n') == std::string::npos);
  }
  const size_t end = answer.find('\n');
  return end == std::string::npos ? "" : answer.substr(0, end);
}

long AgentSimulator::statusField(const std::string& key) const {
  const std::string status = query("status"), needle = " " + key + "=";
  const size_t at = status.find(needle);
  return at == std::string::npos ? -1 : std::strtol(status.c_str() + at + needle.size(), nullptr, 10);
}

bool AgentSimulator::running() const { return statusField("up") == 1; }

bool AgentSimulator::waitForEventChannels(int count) {
  return WaitUntil([&] { return statusField("event-channels") >= count; }, options_.timeoutMs);
}

bool AgentSimulator::waitForRequests(size_t count) {
  return WaitUntil([&] { return requests().size() >= count; }, options_.timeoutMs);
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
  if (!process_) return -1;
  if (process_->running()) kill(pid(), signal);
  const ProgramRun::Outcome outcome = process_->wait(options_.timeoutMs);
  process_.reset();
  return outcome.hung ? -1 : outcome.status();
}
