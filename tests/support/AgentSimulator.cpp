#include "tests/support/AgentSimulator.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/TestClient.h"
#include "tests/support/WaitUntil.h"

static constexpr int kTimeoutMs = 10000;  // bounds every wait for the simulator

// agent-sim writes one byte to the ready pipe once every socket accepts, and
// the pipe reads as closed when it dies first (a bad profile, say).
AgentSimulator::AgentSimulator(Options options) : recordFile_(path("/agent-sim.requests")) {
  std::string profile = options.profile;
  if (profile.compare(0, 1, "{") == 0) {
    std::ofstream(path("/profile.json")) << profile;
    profile = path("/profile.json");
  } else if (!profile.empty() && profile.find('/') == std::string::npos) {
    profile = std::string(ZX_SOURCE_DIR) + "/tools/agent-sim/profiles/" + profile + ".json";
  }
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) ready[0] = ready[1] = -1;
  std::vector<std::string> args = {ZX_AGENT_SIM, "--root", root(), "--ready-fd", std::to_string(ready[1])};
  if (!profile.empty()) args.insert(args.end(), {"--profile", profile});  // none: a relay's upstream answers
  if (options.record) args.insert(args.end(), {"--record", recordFile_});
  args.insert(args.end(), options.args.begin(), options.args.end());
  ProgramRun::Options run;
  run.timeLimitMs = 0;
  run.inChild = [fd = ready[1]] { fcntl(fd, F_SETFD, 0); };  // passed on to agent-sim
  process_ = std::make_unique<ProgramRun>(args, run);
  close(ready[1]);
  pollfd poller{ready[0], POLLIN, 0};
  char byte = 0;
  if (poll(&poller, 1, kTimeoutMs) <= 0 || read(ready[0], &byte, 1) != 1)
    ADD_FAILURE() << "AgentSimulator: agent-sim did not come up under " << root() << "\n" << process_->wait(0).err;
  close(ready[0]);
}

std::string AgentSimulator::query(const std::string& command) const {
  TestClient channel(path("/run/agent-sim.ctl"));
  std::string answer;
  if (pid() <= 0 || !channel.Send(command + "\n")) return "";
  for (std::string byte; (byte = channel.Read(1, kTimeoutMs)) != "\n" && !byte.empty();) answer += byte;
  return answer;
}

bool AgentSimulator::waitForEventChannels(int count) {
  const std::string wanted = " event-channels=" + std::to_string(count) + " ";
  return WaitUntil([&] { return query("status").find(wanted) != std::string::npos; }, kTimeoutMs);
}

std::vector<std::string> AgentSimulator::requests() const {
  std::vector<std::string> lines;
  std::ifstream in(recordFile_);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

int AgentSimulator::terminate(int signal) {
  if (!process_) return -1;
  if (process_->running()) kill(pid(), signal);
  const int status = process_->wait(kTimeoutMs).status();
  process_.reset();
  return status;
}
