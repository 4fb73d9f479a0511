#include "Server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <sstream>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "ProfileWriter.h"

namespace agentsim {

namespace {

constexpr const char* kDaemonBinary = "/usr/sbin/omad";
constexpr const char* kPidFile = "/var/run/omad.pid";
constexpr const char* kClassicSocket = "/dev/omads";
constexpr const char* kRequestSocket = "/dev/omadsj";
constexpr const char* kEventSocket = "/dev/omadaj";

// Signals arrive through a pipe so the poll loop handles them in order with
// everything else.
int g_signalPipe[2] = {-1, -1};

void OnSignal(int signal) {
  int saved = errno;
  unsigned char byte = static_cast<unsigned char>(signal);
  ssize_t ignored = write(g_signalPipe[1], &byte, 1);
  (void)ignored;
  errno = saved;
}

bool MakeParents(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  return !error;
}

bool WriteFile(const std::string& path, const std::string& content, mode_t mode) {
  if (!MakeParents(path)) return false;
  FILE* file = std::fopen(path.c_str(), "w");
  if (!file) return false;
  bool ok = std::fputs(content.c_str(), file) >= 0;
  ok = std::fclose(file) == 0 && ok;
  return ok && chmod(path.c_str(), mode) == 0;
}

// A connected, non-blocking client socket of `path`; -1 with errno set.
int Connect(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || fcntl(fd, F_SETFL, O_NONBLOCK) != 0) {
    int saved = errno;
    close(fd);
    errno = saved;
    return -1;
  }
  return fd;
}

std::vector<std::string> Words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// The rest of `line` after its first `count` words.
std::string Rest(const std::string& line, size_t count) {
  size_t at = 0;
  for (size_t i = 0; i < count; ++i) {
    at = line.find_first_not_of(" \t", at);
    if (at == std::string::npos) return "";
    at = line.find_first_of(" \t", at);
    if (at == std::string::npos) return "";
  }
  at = line.find_first_not_of(" \t", at);
  return at == std::string::npos ? "" : line.substr(at);
}

const std::string kOk = "ok";
const std::string kDelayNeedsMilliseconds = "error delay needs milliseconds";
const std::string kCannotCreateSockets = "error cannot create sockets";

std::string Sent(int count) { return "ok sent=" + std::to_string(count); }

}  // namespace

bool Server::Command::Number(size_t index, unsigned& out) const {
  uint32_t value = 0;
  if (words.size() <= index || !ParseUnsigned(words[index], value)) return false;
  out = value;
  return true;
}

std::string Server::Command::After(size_t count) const { return Rest(line, count); }

Server::Server(Profile profile, ServerOptions options)
    : profile_(std::move(profile)), responder_(profile_), options_(std::move(options)) {}

Server::~Server() {
  for (auto& connection : connections_) close(connection->fd);
  if (record_) std::fclose(record_);
}

void Server::Log(const std::string& text) const {
  if (options_.verbose) std::fprintf(stderr, "agent-sim: %s\n", text.c_str());
}

bool Server::Listen(const std::string& path, int& fd) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    std::fprintf(stderr, "agent-sim: socket path too long: %s\n", path.c_str());
    return false;
  }
  MakeParents(path);
  unlink(path.c_str());  // a stale socket of an earlier run
  fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || listen(fd, 64) != 0) {
    std::fprintf(stderr, "agent-sim: cannot listen on %s: %s\n", path.c_str(), std::strerror(errno));
    close(fd);
    fd = -1;
    return false;
  }
  return true;
}

void Server::CloseListener(int& fd, const std::string& path) {
  if (fd < 0) return;
  close(fd);
  fd = -1;
  unlink(path.c_str());
}

bool Server::Install() {
  // Only its existence matters to clients; make it harmless if run.
  installed_ = WriteFile(PathOf(kDaemonBinary), "#!/bin/sh\n# agent simulator placeholder\nexit 0\n", 0755);
  return installed_;
}

void Server::Uninstall() {
  unlink(PathOf(kDaemonBinary).c_str());
  installed_ = false;
}

bool Server::Up(bool withPidFile) {
  if (!up_) {
    if (!Listen(PathOf(kClassicSocket), classicFd_) || !Listen(PathOf(kRequestSocket), requestFd_) ||
        !Listen(PathOf(kEventSocket), eventFd_)) {
      Down();
      return false;
    }
    up_ = true;
    nextTimedEvent_ = Clock::now() + std::chrono::milliseconds(options_.eventIntervalMs);
  }
  // The pid file last: clients take it as "the daemon runs".
  if (withPidFile && !WriteFile(PathOf(kPidFile), std::to_string(getpid()) + "\n", 0644)) {
    std::fprintf(stderr, "agent-sim: cannot write %s\n", PathOf(kPidFile).c_str());
    return false;
  }
  return true;
}

void Server::Down(bool keepPidFile) {
  if (!keepPidFile) unlink(PathOf(kPidFile).c_str());
  CloseListener(classicFd_, PathOf(kClassicSocket));
  CloseListener(requestFd_, PathOf(kRequestSocket));
  CloseListener(eventFd_, PathOf(kEventSocket));
  // A stopped daemon drops every client.
  for (auto& connection : connections_)
    if (connection->channel != Channel::kControl) connection->dead = true;
  up_ = false;
}

void Server::Accept(int listenFd, Channel channel) {
  for (;;) {
    int fd = accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    connection->channel = channel;
    const bool relayed = Capturing() && (channel == Channel::kRequest || channel == Channel::kEvent);
    if (relayed && !ConnectUpstream(*connection)) {
      close(fd);
      continue;
    }
    connections_.push_back(std::move(connection));
    Log("accepted fd " + std::to_string(fd));
  }
}

void Server::Read(Connection& connection) {
  char buffer[65536];
  for (;;) {
    ssize_t got = read(connection.fd, buffer, sizeof(buffer));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (got <= 0) {
      connection.dead = true;
      if (connection.channel == Channel::kUpstream) UpstreamClosed();
      return;
    }
    if (connection.channel == Channel::kClassic) continue;  // only ever probed
    if (connection.channel == Channel::kUpstream || (Capturing() && connection.channel != Channel::kControl)) {
      Relay(connection, buffer, static_cast<size_t>(got));
      continue;
    }
    if (connection.channel == Channel::kControl) {
      connection.lines.append(buffer, got);
      size_t end;
      while (!connection.dead && (end = connection.lines.find('\n')) != std::string::npos) {
        std::string line = connection.lines.substr(0, end);
        connection.lines.erase(0, end + 1);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        HandleControlLine(connection, line);
      }
      continue;
    }
    connection.reader.Append(buffer, got);
    std::string text;
    for (;;) {
      FrameReader::Result result = connection.reader.Next(text);
      if (result == FrameReader::Result::kNeedMore) break;
      if (result == FrameReader::Result::kTooLarge) {
        Log("oversized frame, dropping fd " + std::to_string(connection.fd));
        connection.dead = true;
        return;
      }
      HandleFrame(connection, text);
      if (connection.dead) return;
    }
  }
}

void Server::Record(const std::string& request) {
  ++requests_;
  if (record_) {
    std::fprintf(record_, "%s\n", request.c_str());
    std::fflush(record_);
  }
  Log("request: " + request);
}

void Server::HandleFrame(Connection& connection, const std::string& text) {
  Record(text);
  Outcome outcome = responder_.Respond(text, connection.fd);
  if (outcome.registersEventChannel && connection.channel == Channel::kEvent) connection.eventRegistered = true;
  if (outcome.clearedStatus) ++clears_;

  Fault none;
  const Fault& fault = options_.fault.Applies(outcome.firstOc) ? options_.fault : none;
  if (&fault == &options_.fault && options_.fault.remaining > 0) --options_.fault.remaining;
  Log("reply: " + outcome.reply);
  Enqueue(connection, ShapeReply(outcome.reply, fault, options_.delayMs));
}

void Server::Enqueue(Connection& connection, const std::vector<Piece>& pieces) {
  Clock::time_point due = std::max(Clock::now(), connection.lastDue);
  for (const Piece& piece : pieces) {
    due += std::chrono::milliseconds(piece.waitMs);
    connection.queue.push_back(Outgoing{piece.bytes, due, piece.closeAfter, 0});
  }
  connection.lastDue = due;
  Flush(connection);
}

void Server::Flush(Connection& connection) {
  Clock::time_point now = Clock::now();
  while (!connection.dead && !connection.queue.empty() && connection.queue.front().due <= now) {
    Outgoing& out = connection.queue.front();
    while (out.written < out.bytes.size()) {
      ssize_t sent = send(connection.fd, out.bytes.data() + out.written, out.bytes.size() - out.written, MSG_NOSIGNAL);
      if (sent < 0 && errno == EINTR) continue;
      if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;  // POLLOUT resumes
      if (sent <= 0) {
        connection.dead = true;
        return;
      }
      out.written += sent;
    }
    if (out.closeAfter) connection.dead = true;
    connection.queue.pop_front();
  }
}

// A capture needs its agent, and a place for the result, before anything is
// created under the root.
int Server::StartCapture() {
  const std::string path = options_.upstream + kRequestSocket;
  int probe = Connect(path);
  if (probe < 0) {
    std::fprintf(stderr, "agent-sim: no agent to capture at %s: %s\n", path.c_str(), std::strerror(errno));
    return 3;
  }
  close(probe);
  char when[64] = "";
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local)) std::strftime(when, sizeof(when), "%Y-%m-%d %H:%M:%S %z", &local);
  captureStarted_ = when;
  return WriteCapture() ? 0 : 4;
}

bool Server::WriteCapture() {
  std::string error;
  if (WriteFileAtomically(options_.captureFile, capture_.ToProfile(captureStarted_), error)) return true;
  std::fprintf(stderr, "agent-sim: %s\n", error.c_str());
  return false;
}

// Each client of the agent sockets gets a connection of its own to the agent.
bool Server::ConnectUpstream(Connection& client) {
  int fd = Connect(options_.upstream + (client.channel == Channel::kEvent ? kEventSocket : kRequestSocket));
  if (fd < 0) {
    UpstreamClosed();
    return false;
  }
  auto upstream = std::make_unique<Connection>();
  upstream->fd = fd;
  upstream->channel = Channel::kUpstream;
  upstream->peer = &client;
  client.peer = upstream.get();
  connections_.push_back(std::move(upstream));
  return true;
}

// Bytes go on as they came (a split or spoilt reply included); the frames
// are only looked at to pair each reply with its request.
void Server::Relay(Connection& from, const char* data, size_t size) {
  Connection* to = from.peer;
  if (!to) return;  // its partner is gone; this end closes next
  Enqueue(*to, {Piece{std::string(data, size), 0, false}});
  if (!from.follow) return;
  from.reader.Append(data, size);
  for (std::string text;;) {
    FrameReader::Result result = from.reader.Next(text);
    if (result == FrameReader::Result::kNeedMore) return;
    if (result == FrameReader::Result::kTooLarge) {
      // Still relayed, but replies can no longer be told from requests.
      from.follow = to->follow = false;
      return;
    }
    if (from.channel != Channel::kUpstream) {
      Record(text);
      to->asked.push_back(text);
    } else if (from.asked.empty()) {
      capture_.AddEvent(text);
    } else {
      capture_.AddReply(from.asked.front(), text);
      from.asked.pop_front();
    }
  }
}

// The agent closed a relayed connection. When its socket no longer accepts,
// it is gone for good, and the capture ends as the report would.
void Server::UpstreamClosed() {
  const std::string path = options_.upstream + kRequestSocket;
  int probe = Connect(path);
  if (probe >= 0) {
    close(probe);
    return;
  }
  std::fprintf(stderr, "agent-sim: the agent at %s went away\n", path.c_str());
  quit_ = true;
}

// A relay ends on both sides; a client first gets what the agent sent
// before it closed.
void Server::EndRelays() {
  for (auto& connection : connections_) {
    Connection* peer = connection->peer;
    if (!connection->dead || !peer) continue;
    peer->peer = nullptr;
    connection->peer = nullptr;
    if (peer->queue.empty()) peer->dead = true;
    else peer->queue.back().closeAfter = true;
  }
}

int Server::PushEvent(const std::string& text) {
  ++eventsPushed_;
  return PushRaw(EncodeFrame(text));
}

int Server::PushRaw(const std::string& bytes) {
  int count = 0;
  for (auto& connection : connections_) {
    if (connection->dead || !connection->eventRegistered) continue;
    Enqueue(*connection, {Piece{bytes, 0, false}});
    ++count;
  }
  return count;
}

int Server::CloseEventChannels() {
  int count = 0;
  for (auto& connection : connections_)
    if (!connection->dead && connection->eventRegistered) {
      connection->dead = true;
      ++count;
    }
  return count;
}

std::string Server::NextProfileEvent() {
  if (profile_.events.empty())
    // A change of the environment's overall status: harmless for any client.
    return "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":8961,\"CA\":" + std::to_string(profile_.cabinet) +
           ",\"ST\":0,\"DA\":1}]}}";
  std::string text = profile_.events[nextEvent_ % profile_.events.size()];
  ++nextEvent_;
  return text;
}

std::string Server::Status() const {
  int connections = 0, channels = 0;
  for (auto& connection : connections_) {
    if (connection->dead || connection->channel == Channel::kControl || connection->channel == Channel::kUpstream)
      continue;
    ++connections;
    if (connection->eventRegistered) ++channels;
  }
  return "up=" + std::to_string(up_) + " installed=" + std::to_string(installed_) +
         " connections=" + std::to_string(connections) + " event-channels=" + std::to_string(channels) +
         " requests=" + std::to_string(requests_) + " clears=" + std::to_string(clears_) +
         " events=" + std::to_string(eventsPushed_) + " delay=" + std::to_string(options_.delayMs) +
         " event-interval=" + std::to_string(options_.eventIntervalMs) + " fault=" + DescribeFault(options_.fault);
}

void Server::HandleControlLine(Connection& connection, const std::string& line) {
  std::string answer = Control(line);
  Log("control: " + line + " -> " + answer);
  Enqueue(connection, {Piece{answer + "\n", 0, false}});
}

std::string Server::Control(const std::string& line) {
  const Command command{Words(line), line};
  if (command.words.empty()) return "error empty command";
  // Every command by name, as tools/agent-sim/README.md lists them.
  using Handler = std::string (*)(Server& server, const Command& command);
  static const std::map<std::string, Handler> kCommands = {
      {"status", [](Server& s, const Command&) { return "ok " + s.Status(); }},
      {"quit",
       [](Server& s, const Command&) {
         s.quit_ = true;
         return kOk;
       }},
      {"fault", [](Server& s, const Command& c) { return s.SetFault(c); }},
      {"delay",
       [](Server& s, const Command& c) { return c.Number(1, s.options_.delayMs) ? kOk : kDelayNeedsMilliseconds; }},
      {"stop",
       [](Server& s, const Command&) {
         s.Down();
         return kOk;
       }},
      {"stop-sockets",
       [](Server& s, const Command&) {
         s.Down(true);
         return kOk;
       }},
      {"start", [](Server& s, const Command&) { return s.Up() ? kOk : kCannotCreateSockets; }},
      {"restart",
       [](Server& s, const Command&) {
         s.Down();
         return s.Up() ? kOk : kCannotCreateSockets;
       }},
      {"uninstall",
       [](Server& s, const Command&) {
         s.Uninstall();
         return kOk;
       }},
      {"install", [](Server& s, const Command&) { return s.Install() ? kOk : "error cannot write daemon binary"; }},
      {"event-interval",
       [](Server& s, const Command& c) {
         if (!c.Number(1, s.options_.eventIntervalMs)) return std::string("error event-interval needs milliseconds");
         s.nextTimedEvent_ = Clock::now() + std::chrono::milliseconds(s.options_.eventIntervalMs);
         return kOk;
       }},
      {"event", [](Server& s, const Command& c) { return s.ControlEvent(c.After(1)); }},
      {"event-text", [](Server& s, const Command& c) { return Sent(s.PushEvent(c.After(1))); }},
      {"event-raw-zero", [](Server& s, const Command&) { return Sent(s.PushRaw(EncodeLength(0))); }},
      // The length promises the whole frame, only half of it ever comes.
      {"event-raw-truncated",
       [](Server& s, const Command&) {
         const std::string frame = EncodeFrame(s.NextProfileEvent());
         return Sent(s.PushRaw(frame.substr(0, frame.size() / 2)));
       }},
      {"event-raw-garbage", [](Server& s, const Command&) { return Sent(s.PushEvent("{\"SIP\":{\"V\":1,\"CMD\":[")); }},
      {"event-close", [](Server& s, const Command&) { return "ok closed=" + std::to_string(s.CloseEventChannels()); }},
      {"set", [](Server& s, const Command& c) { return s.SetValue(c); }},
      {"unset", [](Server& s, const Command& c) { return s.SetValue(c); }},
  };
  const auto found = kCommands.find(command.words[0]);
  if (found == kCommands.end()) return "error unknown command \"" + command.words[0] + "\"";
  return found->second(*this, command);
}

// fault <fault> | fault delay MS
std::string Server::SetFault(const Command& command) {
  if (command.words.size() >= 2 && command.words[1] == "delay")
    return command.Number(2, options_.delayMs) ? kOk : kDelayNeedsMilliseconds;
  std::string error;
  if (!ParseFault(command.After(1), options_.fault, error)) return "error " + error;
  if (options_.fault.kind == FaultKind::kNone) options_.delayMs = 0;  // "none" clears every fault
  return "ok " + DescribeFault(options_.fault);
}

// event [json]: the next profile event, a command object, or a whole record.
std::string Server::ControlEvent(std::string json) {
  if (json.empty()) return Sent(PushEvent(NextProfileEvent()));
  rapidjson::Document document;
  document.Parse(json.c_str());
  if (document.HasParseError() || !document.IsObject()) return "error event needs a JSON object";
  if (!document.HasMember("SIP")) json = "{\"SIP\":{\"V\":1,\"CMD\":[" + json + "]}}";
  return Sent(PushEvent(json));
}

// set OC OE OI {"ST":..,"DA":..} | unset OC OE OI
std::string Server::SetValue(const Command& command) {
  const std::string& name = command.words[0];
  Address at;
  if (!command.Number(1, at.oc) || !command.Number(2, at.oe) || !command.Number(3, at.oi))
    return "error " + name + " needs OC OE OI";
  if (name == "unset") {
    profile_.values.Erase(at);
    return kOk;
  }
  rapidjson::Document value;
  value.Parse(command.After(4).c_str());
  if (value.HasParseError() || !value.IsObject()) return "error set needs {\"ST\":..,\"DA\":..}";
  unsigned status = 0;
  if (value.HasMember("ST")) {
    if (!value["ST"].IsUint()) return "error ST must be a number";
    status = value["ST"].GetUint();
  }
  std::string data;
  if (value.HasMember("DA")) {
    // Keep the member's text exactly as JSON, whatever its type.
    rapidjson::Document copy;
    copy.CopyFrom(value["DA"], copy.GetAllocator());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    copy.Accept(writer);
    data = buffer.GetString();
  }
  profile_.values.Set(at, status, data);
  return kOk;
}

void Server::HandleSignals() {
  unsigned char signals[64];
  ssize_t got = read(g_signalPipe[0], signals, sizeof(signals));
  for (ssize_t i = 0; i < got; ++i) {
    if (signals[i] == SIGUSR1) {
      if (up_) PushEvent(NextProfileEvent());
    } else {
      quit_ = true;
    }
  }
}

int Server::PollTimeout() const {
  Clock::time_point now = Clock::now();
  Clock::time_point next = Clock::time_point::max();
  for (auto& connection : connections_)
    // Writes already due wait for POLLOUT, not for the clock.
    if (!connection->queue.empty() && connection->queue.front().due > now)
      next = std::min(next, connection->queue.front().due);
  if (up_ && options_.eventIntervalMs > 0) next = std::min(next, nextTimedEvent_);
  if (next == Clock::time_point::max()) return -1;
  if (next <= now) return 0;
  auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count() + 1;
  return static_cast<int>(std::min<long long>(wait, 60000));
}

int Server::Run() {
  if (Capturing()) {
    int status = StartCapture();
    if (status != 0) {
      if (options_.readyFd >= 0) close(options_.readyFd);
      return status;
    }
  }
  if (pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) return 3;
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaction(signal, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);

  if (!options_.recordFile.empty()) {
    record_ = std::fopen(options_.recordFile.c_str(), "a");
    if (!record_) std::fprintf(stderr, "agent-sim: cannot open record file %s\n", options_.recordFile.c_str());
  }
  int status = 0;
  if (!Listen(PathOf(kControlPath), controlFd_) || !Install() || !Up()) status = 3;
  // Lets a launcher wait for the sockets without polling for the pid file.
  if (options_.readyFd >= 0) {
    if (status == 0 && write(options_.readyFd, "R", 1) != 1) Log("cannot write to the ready descriptor");
    close(options_.readyFd);
  }

  while (status == 0 && !quit_) {
    std::vector<pollfd> fds;
    fds.push_back({g_signalPipe[0], POLLIN, 0});
    fds.push_back({controlFd_, POLLIN, 0});
    fds.push_back({classicFd_, POLLIN, 0});
    fds.push_back({requestFd_, POLLIN, 0});
    fds.push_back({eventFd_, POLLIN, 0});
    size_t firstConnection = fds.size();
    Clock::time_point now = Clock::now();
    for (auto& connection : connections_) {
      short events = POLLIN;
      // A due write still queued means the socket was full.
      if (!connection->queue.empty() && connection->queue.front().due <= now) events |= POLLOUT;
      fds.push_back({connection->fd, events, 0});
    }
    int ready = poll(fds.data(), fds.size(), PollTimeout());
    if (ready < 0 && errno != EINTR) {
      std::fprintf(stderr, "agent-sim: poll failed: %s\n", std::strerror(errno));
      status = 3;
      break;
    }
    if (ready > 0) {
      if (fds[0].revents) HandleSignals();
      if (fds[1].revents) Accept(controlFd_, Channel::kControl);
      if (fds[2].revents && classicFd_ >= 0) Accept(classicFd_, Channel::kClassic);
      if (fds[3].revents && requestFd_ >= 0) Accept(requestFd_, Channel::kRequest);
      if (fds[4].revents && eventFd_ >= 0) Accept(eventFd_, Channel::kEvent);
      // Only the connections polled this round; accepted ones come next time.
      for (size_t i = firstConnection; i < fds.size(); ++i) {
        Connection& connection = *connections_[i - firstConnection];
        if (connection.dead) continue;
        if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) Read(connection);
      }
    }
    for (auto& connection : connections_) Flush(*connection);
    if (up_ && options_.eventIntervalMs > 0 && Clock::now() >= nextTimedEvent_) {
      PushEvent(NextProfileEvent());
      nextTimedEvent_ = Clock::now() + std::chrono::milliseconds(options_.eventIntervalMs);
    }
    EndRelays();
    for (auto& connection : connections_)
      if (connection->dead) {
        close(connection->fd);
        connection->fd = -1;
      }
    connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                      [](const std::unique_ptr<Connection>& c) { return c->fd < 0; }),
                       connections_.end());
  }

  // Written first: whatever comes next, the capture is safe.
  if (Capturing() && !WriteCapture() && status == 0) status = 4;
  Down();
  Uninstall();
  CloseListener(controlFd_, PathOf(kControlPath));
  for (auto& connection : connections_) close(connection->fd);
  connections_.clear();
  return status;
}

}  // namespace agentsim
