#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Capture.h"
#include "Fault.h"
#include "Frame.h"
#include "Profile.h"
#include "Responder.h"

namespace agentsim {

struct ServerOptions {
  std::string root;          // system root; every path below is put under it
  std::string recordFile;    // empty: no recording
  unsigned eventIntervalMs = 0;
  unsigned delayMs = 0;
  int readyFd = -1;  // gets one byte once every socket accepts, then is closed
  Fault fault;
  bool verbose = false;
  // Capture mode: every client is relayed to the agent below `upstream` (a
  // system root, "" for /), and what it answered goes to `captureFile`.
  std::string captureFile;
  std::string upstream;
};

// The simulated daemon: one poll loop that serves the three agent sockets,
// the control channel and the signal pipe. Delays and split replies are
// timed writes in that loop, so one slow reply never holds up other clients.
// In capture mode the same loop relays each client to a connection of its
// own to the real agent and records what comes back.
class Server {
 public:
  using Clock = std::chrono::steady_clock;

  Server(Profile profile, ServerOptions options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Creates the files and sockets and serves until SIGTERM, SIGINT or the
  // control command "quit" (in capture mode also until the agent goes away);
  // removes everything it created. Returns the exit status (0; 3 when the
  // sockets or the captured agent cannot be reached; 4 when the capture
  // cannot be written).
  int Run();

  // Control channel location below the root.
  static constexpr const char* kControlPath = "/run/agent-sim.ctl";

 private:
  enum class Channel { kClassic, kRequest, kEvent, kControl, kUpstream };
  struct Outgoing {
    std::string bytes;
    Clock::time_point due;
    bool closeAfter = false;
    size_t written = 0;
  };
  struct Connection {
    int fd = -1;
    Channel channel = Channel::kRequest;
    FrameReader reader;
    std::string lines;  // control channel input
    std::deque<Outgoing> queue;
    Clock::time_point lastDue{};
    bool eventRegistered = false;
    bool dead = false;
    // Capture mode: the other end of the relay, the requests still waiting
    // for their reply (upstream side), and whether frames can still be told
    // apart in the stream.
    Connection* peer = nullptr;
    std::deque<std::string> asked;
    bool follow = true;
  };

  std::string PathOf(const char* absolute) const { return options_.root + absolute; }
  bool Install();
  void Uninstall();
  bool Up(bool withPidFile = true);
  void Down(bool keepPidFile = false);
  bool Listen(const std::string& path, int& fd);
  void CloseListener(int& fd, const std::string& path);

  void Accept(int listenFd, Channel channel);
  void Read(Connection& connection);
  void Flush(Connection& connection);
  void Enqueue(Connection& connection, const std::vector<Piece>& pieces);
  void HandleFrame(Connection& connection, const std::string& text);
  void Record(const std::string& request);
  bool Capturing() const { return !options_.captureFile.empty(); }
  int StartCapture();
  bool WriteCapture();
  bool ConnectUpstream(Connection& client);
  void Relay(Connection& from, const char* data, size_t size);
  void UpstreamClosed();
  void EndRelays();
  // One control line, split into words.
  struct Command {
    std::vector<std::string> words;
    const std::string& line;
    bool Number(size_t index, unsigned& out) const;
    std::string After(size_t count) const;  // the rest of the line after its first `count` words
  };
  void HandleControlLine(Connection& connection, const std::string& line);
  std::string Control(const std::string& line);
  std::string SetFault(const Command& command);
  std::string ControlEvent(std::string json);
  std::string SetValue(const Command& command);
  void HandleSignals();

  int PushEvent(const std::string& text);
  int PushRaw(const std::string& bytes);
  int CloseEventChannels();
  std::string NextProfileEvent();
  std::string Status() const;
  void Log(const std::string& text) const;
  int PollTimeout() const;

  Profile profile_;
  Responder responder_;
  ServerOptions options_;
  std::vector<std::unique_ptr<Connection>> connections_;
  int classicFd_ = -1, requestFd_ = -1, eventFd_ = -1, controlFd_ = -1;
  bool up_ = false;
  bool installed_ = false;
  bool quit_ = false;
  FILE* record_ = nullptr;
  size_t nextEvent_ = 0;
  Clock::time_point nextTimedEvent_{};
  unsigned long requests_ = 0, clears_ = 0, eventsPushed_ = 0;
  Capture capture_;
  std::string captureStarted_;  // local time, for the capture's description
};

}  // namespace agentsim
