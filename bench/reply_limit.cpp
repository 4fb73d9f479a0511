// How large a reply JsonSendRequest takes in on this machine. The receive
// loop reads at most 10 times and sleeps a second after every read that
// leaves the reply incomplete, so the limit is about ten socket buffers'
// worth of bytes, and every piece beyond the first costs a second. A peer
// thread writes each reply frame as fast as the socket lets it.
//
//   reply_limit [RESOLUTION_BYTES]
//
// Prints one "probe bytes=N result=R seconds=S" line per reply tried, then
//   limit_bytes=L first_failure_bytes=F
// where L is the largest reply that came through and F the smallest that
// did not (both within RESOLUTION_BYTES, default 16384).
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "agent/JsonChannel.h"
#include "bench/RawSocket.h"

namespace {

using rawsocket::ReadExactly;

// Takes one request frame off the socket, then sends `frame` in one go.
void AnswerOnce(int fd, const std::string& frame) {
  uint32_t length = 0;
  if (!ReadExactly(fd, reinterpret_cast<char*>(&length), sizeof(length))) return;
  std::vector<char> request(length);
  if (!ReadExactly(fd, request.data(), length)) return;
  size_t sent = 0;
  while (sent < frame.size()) {
    const ssize_t n = send(fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;  // the client gave up and closed its end
    sent += static_cast<size_t>(n);
  }
}

// A reply frame whose JSON text is `textBytes` long.
std::string ReplyFrame(size_t textBytes) {
  std::string text = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":2832,\"ST\":0,\"DA\":\"";
  const std::string tail = "\"}]}}";
  if (textBytes > text.size() + tail.size()) text.append(textBytes - text.size() - tail.size(), 'x');
  text += tail;
  const uint32_t length = static_cast<uint32_t>(text.size() + 1);
  std::string frame(reinterpret_cast<const char*>(&length), sizeof(length));
  frame += text;
  frame.push_back('\0');
  return frame;
}

struct Probe {
  unsigned result;
  double seconds;
};

Probe Try(size_t textBytes) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
    std::perror("reply_limit: socketpair");
    std::exit(1);
  }
  const std::string frame = ReplyFrame(textBytes);
  std::thread peer(AnswerOnce, fds[1], std::cref(frame));
  std::string reply;
  const auto begin = std::chrono::steady_clock::now();
  const unsigned result = JsonSendRequest(fds[0], "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":2832}]}}", reply, 5);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  close(fds[0]);  // unblocks a peer still sending after a failed read
  peer.join();
  close(fds[1]);
  if (result == kJsonOk && reply.size() + 1 != frame.size() - sizeof(uint32_t)) {
    std::fprintf(stderr, "reply_limit: reply of %zu bytes arrived with %zu\n", textBytes, reply.size());
    std::exit(1);
  }
  std::printf("probe bytes=%zu result=%u seconds=%.2f\n", textBytes, result, seconds);
  std::fflush(stdout);
  return {result, seconds};
}

}  // namespace

int main(int argc, char** argv) {
  const size_t resolution = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 16384;
  if (resolution == 0) {
    std::fprintf(stderr, "usage: reply_limit [RESOLUTION_BYTES]\n");
    return 2;
  }
  // Doubling until a reply fails; the 16 MiB cap ends the search at the latest.
  size_t good = 0, bad = 0;
  for (size_t n = 64 * 1024; n <= 64u * 1024 * 1024; n *= 2) {
    if (Try(n).result == kJsonOk) {
      good = n;
    } else {
      bad = n;
      break;
    }
  }
  if (bad == 0) {
    std::printf("limit_bytes=%zu first_failure_bytes=none\n", good);
    return 0;
  }
  while (bad - good > resolution) {
    const size_t mid = good + (bad - good) / 2;
    if (Try(mid).result == kJsonOk)
      good = mid;
    else
      bad = mid;
  }
  std::printf("limit_bytes=%zu first_failure_bytes=%zu\n", good, bad);
  return 0;
}
