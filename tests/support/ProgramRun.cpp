#include "tests/support/ProgramRun.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

std::string Contents(int fd) {
  std::string text;
  char buffer[65536];
  for (ssize_t got; (got = pread(fd, buffer, sizeof buffer, text.size())) > 0;) text.append(buffer, got);
  return text;
}

// The test's environment with `changes` applied.
std::vector<std::string> Environment(const std::vector<std::string>& changes) {
  std::vector<std::string> env;
  for (char** entry = environ; *entry != nullptr; ++entry) env.emplace_back(*entry);
  for (const std::string& change : changes) {
    const std::string name = change.substr(0, change.find('=')) + "=";
    env.erase(std::remove_if(env.begin(), env.end(), [&](const std::string& e) { return e.rfind(name, 0) == 0; }),
              env.end());
    if (change.find('=') != std::string::npos) env.push_back(change);
  }
  return env;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ProgramRun::ProgramRun(const std::vector<std::string>& argv, Options options)
    : options_(std::move(options)), started_(Clock::now()) {
  // Everything the child needs is made before fork: the child of a threaded
  // test may only make async-signal-safe calls.
  std::vector<std::string> args = argv, env = Environment(options_.env);
  std::vector<char*> argp = Pointers(args), envp = Pointers(env);
  out_ = memfd_create("stdout", MFD_CLOEXEC);
  err_ = memfd_create("stderr", MFD_CLOEXEC);
  pid_ = fork();
  if (pid_ != 0) return;
  dup2(out_, 1);
  dup2(err_, 2);
  struct rlimit noCore = {0, 0};  // a crash leaves no core file behind
  setrlimit(RLIMIT_CORE, &noCore);
  if (options_.inChild) options_.inChild();
  if (options_.workDir.empty() || chdir(options_.workDir.c_str()) == 0) execve(argp[0], argp.data(), envp.data());
  _exit(127);
}

ProgramRun::~ProgramRun() {
  if (pid_ > 0 && !reaped_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (int fd : {out_, err_})
    if (fd >= 0) close(fd);
}

bool ProgramRun::running() {
  int status = 0;
  if (!reaped_ && pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) Record(status);
  return pid_ > 0 && !reaped_;
}

std::string ProgramRun::out() const { return Contents(out_); }

ProgramRun::Outcome ProgramRun::wait(int limitMs) {
  auto deadline = Clock::time_point::max();
  if (limitMs >= 0) deadline = Clock::now() + std::chrono::milliseconds(limitMs);
  else if (options_.timeLimitMs > 0) deadline = started_ + std::chrono::milliseconds(options_.timeLimitMs);
  while (running() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (running()) {
    outcome_.hung = true;
    kill(pid_, SIGKILL);
    int status = 0;
    if (waitpid(pid_, &status, 0) == pid_) Record(status);
  }
  outcome_.out = Contents(out_);
  outcome_.err = Contents(err_);
  return outcome_;
}

void ProgramRun::Record(int status) {
  reaped_ = true;
  outcome_.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  if (WIFEXITED(status)) outcome_.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome_.signal = WTERMSIG(status);
}
