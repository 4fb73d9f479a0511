#pragma once

#include <signal.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ProgramRun.h"
#include "tests/support/ScopedSystemRoot.h"

// Runs the agent simulator (tools/agent-sim) as a child process under its own
// scratch system root, so a test talks to a daemon that behaves like the
// real one without touching /dev or /var.
//
// Construction makes the root (ZENTRIX_ROOT, see ScopedSystemRoot), starts the
// simulator and waits (bounded) until its sockets accept connections.
// Destruction stops the process (SIGTERM, then SIGKILL) and reaps it before
// the root goes.
//
//   AgentSimulator sim;                       // typical.json
//   ... run the client ...
//   EXPECT_EQ(sim.requests().size(), 3u);
//   sim.control("fault split 3 20");         // runtime fault switch
//   sim.control("event");                    // push one event frame
//
// The control commands are listed in tools/agent-sim/README.md.
class AgentSimulator : public ScopedSystemRoot {
 public:
  struct Options {
    // A name of tools/agent-sim/profiles ("typical", "empty", "degraded"),
    // a path to a profile file (anything containing a '/'), or the profile
    // itself (text starting with '{', kept in the simulator's root).
    std::string profile = "typical";
    // Extra command-line arguments for agent-sim ("--event-interval", "200", ...).
    std::vector<std::string> args = {};
    // Record every received request (see requests()); benchmarks leave it off.
    bool record = true;
  };

  AgentSimulator() : AgentSimulator(Options()) {}
  explicit AgentSimulator(Options options);
  ~AgentSimulator() { terminate(); }

  pid_t pid() const { return process_ ? process_->pid() : -1; }
  // True while the process lives and the daemon is "up" (not stopped).
  bool running() const { return query("status").find(" up=1 ") != std::string::npos; }

  // Daemon stop: the simulator removes its pid file and sockets and drops
  // every connection, but the process (and its control channel) stays.
  bool stop() { return control("stop"); }
  // Daemon start after stop(): pid file and sockets are created again.
  bool start() { return control("start"); }

  // Sends one control command; true when the simulator answered "ok".
  bool control(const std::string& command) { return query(command).compare(0, 2, "ok") == 0; }
  // Sends one control command and returns the answer line (without the line
  // end); empty when the control channel could not be reached.
  std::string query(const std::string& command) const;

  // Waits until `count` event channels are registered (a client that
  // enabled events has sent its init command on /dev/omadaj).
  bool waitForEventChannels(int count);

  // Recorded request texts, one per received frame, oldest first.
  std::vector<std::string> requests() const;

  // Ends the simulator process with `signal` and reaps it (killed when it
  // does not end in time); the exit status, or 128 + the ending signal.
  int terminate(int signal = SIGTERM);

 private:
  std::string recordFile_;
  std::unique_ptr<ProgramRun> process_;
};
