#include "tests/support/ProgramRun.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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

// The strings as a null-terminated array of pointers into them.
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
  std::vector<std::string> args = argv, env;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string name = std::string(*entry).substr(0, std::string(*entry).find('='));
    bool changed = false;
    for (const std::string& change : options_.env) changed |= change.substr(0, change.find('=')) == name;
    if (!changed) env.emplace_back(*entry);
  }
  for (const std::string& change : options_.env)
    if (change.find('=') != std::string::npos) env.push_back(change);
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
  wait(0);  // kills a program still running
  close(out_);
  close(err_);
}

bool ProgramRun::running() {
  int status = 0;
  if (reaped_ || pid_ <= 0 || waitpid(pid_, &status, WNOHANG) != pid_) return !reaped_ && pid_ > 0;
  reaped_ = true;
  outcome_.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  if (WIFEXITED(status)) outcome_.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome_.signal = WTERMSIG(status);
  return false;
}

std::string ProgramRun::out() const { return Contents(out_); }

ProgramRun::Outcome ProgramRun::wait(int limitMs) {
  auto deadline = Clock::time_point::max();
  if (limitMs >= 0) deadline = Clock::now() + std::chrono::milliseconds(limitMs);
  else if (options_.timeLimitMs > 0) deadline = started_ + std::chrono::milliseconds(options_.timeLimitMs);
  while (running() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (running()) {
    kill(pid_, SIGKILL);
    while (running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  outcome_.out = Contents(out_);
  outcome_.err = Contents(err_);
  return outcome_;
}
