// The floor for a report's agent traffic: the same sequence of request and
// reply sizes ping-ponged between two processes over an AF_UNIX stream
// socket, framed like the agent (4-byte length, text, NUL), with nothing
// else done to the bytes. Written apart from the product's agent code so a
// slowness there cannot hide in the floor.
//
//   rtt_floor PAIRS [MIN_SECONDS] [--one-cpu]
//
// PAIRS holds one "request_text_bytes reply_text_bytes" line per round trip,
// in the order the tool sent them. The whole sequence is repeated until
// MIN_SECONDS (default 0.3) have passed, at least 5 times. --one-cpu keeps
// both processes on the CPU the program started on: on an idle machine a
// wake-up on the other core can cost more than the exchange itself. Prints
//   round_trips=N repeats=R ns_per_round_trip_median=X ns_per_round_trip_min=Y
#include <sched.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bench/RawSocket.h"

namespace {

using rawsocket::ReadExactly;

struct RoundTrip {
  uint32_t requestText;
  uint32_t replyText;
};

// Sends one frame whose payload is `text` filler bytes and the NUL.
bool WriteFrame(int fd, const std::vector<char>& filler, uint32_t text) {
  const uint32_t length = text + 1;
  char nul = '\0';
  struct iovec parts[3] = {{const_cast<uint32_t*>(&length), sizeof(length)},
                           {const_cast<char*>(filler.data()), text},
                           {&nul, 1}};
  size_t left = sizeof(length) + text + 1;
  int first = 0;
  while (left > 0) {
    const ssize_t n = writev(fd, parts + first, 3 - first);
    if (n <= 0) return false;
    left -= static_cast<size_t>(n);
    size_t done = static_cast<size_t>(n);
    while (first < 3 && done >= parts[first].iov_len) done -= parts[first++].iov_len;
    if (first < 3) {
      parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + done;
      parts[first].iov_len -= done;
    }
  }
  return true;
}

// Reads one frame into `buffer`; false at end of stream.
bool ReadFrame(int fd, std::vector<char>& buffer) {
  uint32_t length = 0;
  if (!ReadExactly(fd, reinterpret_cast<char*>(&length), sizeof(length))) return false;
  if (buffer.size() < length) buffer.resize(length);
  return ReadExactly(fd, buffer.data(), length);
}

// The echo peer: answers the n-th request with the n-th reply size, cycling.
int ServePeer(int fd, const std::vector<RoundTrip>& trips, const std::vector<char>& filler) {
  std::vector<char> buffer(1 << 16);
  for (size_t i = 0;; i = (i + 1) % trips.size()) {
    if (!ReadFrame(fd, buffer)) return 0;
    if (!WriteFrame(fd, filler, trips[i].replyText)) return 1;
  }
}

bool LoadTrips(const char* path, std::vector<RoundTrip>& trips) {
  std::ifstream in(path);
  unsigned long request = 0, reply = 0;
  while (in >> request >> reply) {
    if (request > UINT32_MAX - 1 || reply > UINT32_MAX - 1) return false;
    trips.push_back({static_cast<uint32_t>(request), static_cast<uint32_t>(reply)});
  }
  return in.eof() && !trips.empty();
}

}  // namespace

int main(int argc, char** argv) {
  const bool oneCpu = argc > 1 && std::strcmp(argv[argc - 1], "--one-cpu") == 0;
  if (oneCpu) --argc;
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: rtt_floor PAIRS [MIN_SECONDS] [--one-cpu]\n");
    return 2;
  }
  if (oneCpu) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(sched_getcpu(), &cpus);
    if (sched_setaffinity(0, sizeof(cpus), &cpus) != 0) std::perror("rtt_floor: sched_setaffinity");
  }
  std::vector<RoundTrip> trips;
  if (!LoadTrips(argv[1], trips)) {
    std::fprintf(stderr, "rtt_floor: %s: expected lines of two sizes\n", argv[1]);
    return 2;
  }
  const double minSeconds = argc == 3 ? std::atof(argv[2]) : 0.3;
  uint32_t largest = 0;
  for (const RoundTrip& t : trips) largest = std::max({largest, t.requestText, t.replyText});
  const std::vector<char> filler(largest, 'x');

  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
    std::perror("rtt_floor: socketpair");
    return 1;
  }
  const pid_t peer = fork();
  if (peer < 0) {
    std::perror("rtt_floor: fork");
    return 1;
  }
  if (peer == 0) {
    close(fds[0]);
    _exit(ServePeer(fds[1], trips, filler));
  }
  close(fds[1]);

  using Clock = std::chrono::steady_clock;
  std::vector<double> perTrip;
  std::vector<char> buffer(1 << 16);
  const Clock::time_point start = Clock::now();
  bool ok = true;
  while (ok && (perTrip.size() < 5 ||
                std::chrono::duration<double>(Clock::now() - start).count() < minSeconds)) {
    const Clock::time_point begin = Clock::now();
    for (const RoundTrip& t : trips) {
      if (!WriteFrame(fds[0], filler, t.requestText) || !ReadFrame(fds[0], buffer)) {
        ok = false;
        break;
      }
    }
    const double ns = std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
    if (ok) perTrip.push_back(ns / static_cast<double>(trips.size()));
  }
  close(fds[0]);
  int status = 0;
  waitpid(peer, &status, 0);
  if (!ok || perTrip.empty()) {
    std::fprintf(stderr, "rtt_floor: the echo peer stopped answering\n");
    return 1;
  }
  std::sort(perTrip.begin(), perTrip.end());
  std::printf("round_trips=%zu repeats=%zu ns_per_round_trip_median=%.0f ns_per_round_trip_min=%.0f\n", trips.size(),
              perTrip.size(), perTrip[perTrip.size() / 2], perTrip.front());
  return 0;
}
