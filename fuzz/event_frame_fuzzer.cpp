// The event channel carries whatever the daemon pushes, read on the event
// thread. The fuzzer's bytes are the stream of event frames on that channel,
// after which the daemon stops sending; events are read one after another
// until the channel reports its end. A frame that cannot be read whole makes
// the client try to reopen the channel, which finds no daemon here. The
// one-second pauses of that path are switched off below.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "fuzz/NoSleep.h"

namespace {
constexpr size_t kMaxWire = 32 * 1024;  // stays below the socket buffer
constexpr int kMaxEvents = 64;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // An empty system root: reopening looks for the event socket in there,
  // never in the machine's /dev.
  static std::string root = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/zx-event-fuzz-XXXXXX";
  if (mkdtemp(root.data()) == nullptr) abort();
  setenv(CSystemRoot::kEnvironmentVariable, root.c_str(), 1);
  atexit([] { std::filesystem::remove_all(root); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxWire) return 0;
  static CSwitchClient client;
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) abort();
  fcntl(fds[1], F_SETFL, O_NONBLOCK);
  size_t sent = 0;
  while (sent < size) {
    ssize_t n = send(fds[1], data + sent, size - sent, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  shutdown(fds[1], SHUT_WR);

  const int fd = fds[0];
  for (int i = 0; i < kMaxEvents; ++i) {
    SipJson event;
    const int next = client.JsonGetEvent(event, fd, "fuzz");
    (void)event.GetCmdElemValue(0, "OC", 0);
    (void)event.HasReplyData();
    if (next != fd) {
      // There is no daemon to hand out a new channel: only -1 can come back.
      if (next >= 0) abort();
      break;
    }
  }
  // -1 leaves the channel open at its end, but closed after a failed
  // reopen. Nothing else runs here, so the number cannot have been reused.
  if (fcntl(fd, F_GETFD) != -1) close(fd);
  close(fds[1]);
  return 0;
}
