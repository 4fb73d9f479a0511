// One small read through CSwitchClient::Request (serialise, framed exchange,
// parse) against the floor: the same request and reply bytes ping-ponged raw
// over the same kind of Unix socket to the same in-process echo thread.
#include <benchmark/benchmark.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "bench/RawSocket.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

const char kReplyText[] = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"CA\":0,\"ST\":0,\"DA\":1}]}}";

using rawsocket::Frame;
using rawsocket::ReadExactly;
using rawsocket::WriteAll;

// Answers every frame on every connection with one fixed reply frame.
class EchoServer {
 public:
  explicit EchoServer(const std::string& path) : m_Reply(Frame(kReplyText)) {
    m_Listen = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un addr = rawsocket::Address(path);
    bind(m_Listen, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr));
    listen(m_Listen, 8);
    m_Acceptor = std::thread([this] { Accept(); });
  }
  ~EchoServer() {
    m_Stop = true;
    m_Acceptor.join();
    for (int fd : m_Clients) shutdown(fd, SHUT_RDWR);
    for (std::thread& t : m_Workers) t.join();
    for (int fd : m_Clients) close(fd);
    close(m_Listen);
  }

 private:
  void Accept() {
    while (!m_Stop) {
      struct pollfd p = {m_Listen, POLLIN, 0};
      if (poll(&p, 1, 20) <= 0) continue;
      const int fd = accept(m_Listen, nullptr, nullptr);
      if (fd < 0) continue;
      m_Clients.push_back(fd);
      m_Workers.emplace_back([this, fd] { Serve(fd); });
    }
  }
  void Serve(int fd) {
    std::vector<char> payload;
    for (;;) {
      uint32_t length = 0;
      if (!ReadExactly(fd, reinterpret_cast<char*>(&length), 4)) return;
      payload.resize(length);
      if (length > 0 && !ReadExactly(fd, payload.data(), length)) return;
      if (!WriteAll(fd, m_Reply)) return;
    }
  }

  std::string m_Reply;
  int m_Listen = -1;
  std::atomic<bool> m_Stop{false};
  std::thread m_Acceptor;
  std::vector<int> m_Clients;
  std::vector<std::thread> m_Workers;
};

// A scratch system with an installed, running daemon whose request socket
// is the echo server; one attached client.
struct Setup {
  Setup() {
    root.writeFile("/usr/sbin/omad", "");
    root.writeFile("/var/run/omad.pid", "1");
    root.makeDirs("/dev");
    classic = std::make_unique<EchoServer>(CSystemRoot::Path("/dev/omads"));
    server = std::make_unique<EchoServer>(CSystemRoot::Path("/dev/omadsj"));
    attached = client.Attach(nullptr);
  }
  ~Setup() { client.Detach(); }

  ScopedSystemRoot root;
  std::unique_ptr<EchoServer> classic;
  std::unique_ptr<EchoServer> server;
  CSwitchClient client;
  bool attached = false;
};

Setup& Environment() {
  static Setup setup;
  return setup;
}

// Fills the record the way a fan status read does.
void FillRead(SipJson& record) {
  SipJson::GenericValue& cmd = record.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", 0x0301, false);
  SipJson::SetCmdElemValue(cmd, "OE", 0, true);
  SipJson::SetCmdElemValue(cmd, "OI", 0, true);
  SipJson::SetCmdElemValue(cmd, "CA", 0, false);
}

void BM_ClientRequest(benchmark::State& state) {
  Setup& env = Environment();
  if (!env.attached) {
    state.SkipWithError("attach failed");
    return;
  }
  SipJson record;
  for (auto _ : state) {
    FillRead(record);
    const unsigned status = env.client.Request(record, 10);
    if (status != 0) {
      state.SkipWithError("request failed");
      return;
    }
    unsigned value = 0;
    benchmark::DoNotOptimize(record.GetCmdUIntData(0, value));
  }
}
BENCHMARK(BM_ClientRequest);

void BM_RawPingPong(benchmark::State& state) {
  Environment();
  // The bytes Request sends once the record holds the previous reply.
  SipJson record;
  record.ParseReply(kReplyText);
  FillRead(record);
  const std::string request = Frame(record.Serialize());
  const std::string path = CSystemRoot::Path("/dev/omadsj");
  const int fd = rawsocket::Connect(path);
  if (fd < 0) {
    state.SkipWithError("connect failed");
    return;
  }
  std::vector<char> reply(64 * 1024);
  for (auto _ : state) {
    uint32_t length = 0;
    if (!WriteAll(fd, request) || !ReadExactly(fd, reinterpret_cast<char*>(&length), 4) ||
        length > reply.size() || !ReadExactly(fd, reply.data(), length)) {
      state.SkipWithError("ping-pong failed");
      break;
    }
    benchmark::DoNotOptimize(reply.data());
  }
  close(fd);
}
BENCHMARK(BM_RawPingPong);

}  // namespace

BENCHMARK_MAIN();
