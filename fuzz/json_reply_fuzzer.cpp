// Plays a hostile daemon on the other end of a socket pair: the fuzzer's
// bytes are the whole answer (length word, payload, anything after it), and
// the daemon then stops sending, so every read ends. The one-second pacing
// between incomplete reads is switched off below; it only costs time.
//
// Input: byte 0 selects how the daemon ends (bit 0: close the socket instead
// of only shutting down its sending side); the rest goes on the wire.
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/JsonChannel.h"
#include "fuzz/NoSleep.h"

namespace {
constexpr size_t kMaxWire = 32 * 1024;  // stays below the socket buffer
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size - 1 > kMaxWire) return 0;
  const bool closeWhole = data[0] & 1;
  ++data;
  --size;

  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) abort();
  const int client = fds[0];
  const int daemon = fds[1];
  fcntl(daemon, F_SETFL, O_NONBLOCK);
  size_t sent = 0;
  while (sent < size) {
    ssize_t n = send(daemon, data + sent, size - sent, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  if (closeWhole) {
    close(daemon);
  } else {
    shutdown(daemon, SHUT_WR);
  }

  std::string reply = "untouched";
  const unsigned rc = JsonSendRequest(client, "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":2832,\"CA\":0}]}}", reply, 5);
  switch (rc) {
    case kJsonOk: {
      // The text ends at the first NUL and never runs past the received
      // payload plus the spare bytes the channel promises. (A length word
      // cut short is not detected, so only a whole one bounds the text.)
      if (reply.find('\0') != std::string::npos) abort();
      if (sent >= 4) {
        uint32_t len = 0;
        memcpy(&len, data, 4);
        if (reply.size() > static_cast<size_t>(len) + 20) abort();
      }
      break;
    }
    case kJsonNotReadable:
    case kJsonReadFailed:
    case kJsonNoMemory:
    case kJsonWriteFailed:
      if (reply != "untouched") abort();
      break;
    default:
      abort();
  }
  close(client);
  if (!closeWhole) close(daemon);
  return 0;
}
