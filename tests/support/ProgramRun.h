#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

// A program run as a child process, for whole-program tests: the arguments as
// given (no shell), the test's environment with changes, standard output and
// error captured, and a time limit after which it is killed.
//
//   ProgramRun::Outcome done = RunProgram({ZX_ZENTRIX_BIN, "-?"});
//   ProgramRun run({ZX_EVENT_WATCH_BIN});  ...  kill(run.pid(), SIGTERM);  run.wait().status()
class ProgramRun {
 public:
  struct Options {
    std::vector<std::string> env;  // "NAME=value" set for the program, a bare "NAME" removed
    std::string workDir;           // empty: the test's own
    int timeLimitMs = 30000;       // 0: none
    // Runs in the child just before exec (resource limits, capabilities,
    // descriptors to pass on). The test may have threads, so only
    // async-signal-safe calls belong here.
    std::function<void()> inChild;
  };
  struct Outcome {
    int exitStatus = -1;  // valid when the program exited
    int signal = 0;       // the signal that ended it, if any (SIGKILL past the time limit)
    std::string out, err;
    double seconds = 0;
    // The shell's way: the exit status, or 128 + the signal.
    int status() const { return signal != 0 ? 128 + signal : exitStatus; }
  };

  // The exit status is 127 when the program could not be started.
  explicit ProgramRun(const std::vector<std::string>& argv) : ProgramRun(argv, Options()) {}
  ProgramRun(const std::vector<std::string>& argv, Options options);
  ~ProgramRun();  // kills and reaps a program still running
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;

  pid_t pid() const { return pid_; }
  bool running();
  // Standard output so far.
  std::string out() const;
  // Waits for the end, at most until the time limit (or `limitMs` from now
  // when given), and kills the program when it is over.
  Outcome wait(int limitMs = -1);

 private:
  Options options_;
  std::chrono::steady_clock::time_point started_;
  pid_t pid_ = -1;
  int out_ = -1, err_ = -1;  // memory files the program writes to
  bool reaped_ = false;
  Outcome outcome_;
};

inline ProgramRun::Outcome RunProgram(const std::vector<std::string>& argv,
                                      ProgramRun::Options options = ProgramRun::Options()) {
  return ProgramRun(argv, std::move(options)).wait();
}
