#include "agent/JsonChannel.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "agent/FrameReader.h"
#include "agent/SipJson.h"
#include "runtime/CDebug.h"
#include "runtime/CSystemRoot.h"
#include "runtime/LittleEndian.h"
#include "runtime/ThreadId.h"

namespace {

constexpr int kSendPasses = 10;
constexpr int kAttachAttempts = 20;
constexpr useconds_t kAttachPauseUsec = 50000;
constexpr int kRegisterAttempts = 600;
// Failed connect attempts are traced once in so many.
constexpr int kTraceEveryAttempts = 10;
constexpr const char* kEventSocketPath = "/dev/omadaj";

using Buffer = FrameReader::Buffer;


int ToPollTimeout(unsigned msec) { return msec > INT_MAX ? INT_MAX : static_cast<int>(msec); }

// Sends without SIGPIPE when the peer has gone; plain write for non-sockets.
ssize_t WriteSome(int fd, const char* data, size_t size) {
  ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
  if (n < 0 && errno == ENOTSOCK) n = write(fd, data, size);
  return n;
}

}  // namespace

int OpenDevice(const char* path) {
  const char* where = path != nullptr ? path : "";
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    const int err = errno;
    g_Debug.PrintAlways("OpenDevice: ERROR: create socket on %s failed (thrId=0x%08X): %s\n", where, ThreadId(),
                        strerror(err));
    errno = err;
    return kOpenNoSocket;
  }
  if (!ConnectUnixSocket(fd, where)) {
    const int err = errno;
    g_Debug.PrintAlways("OpenDevice: ERROR: connect to socket on %s failed (thrId=0x%08X): %s\n", where, ThreadId(),
                        strerror(err));
    close(fd);
    errno = err;
    return kOpenConnectFailed;
  }
  return fd;
}

bool ConnectUnixSocket(int fd, const char* path) {
  struct sockaddr_un addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  const size_t length = std::strlen(path);
  if (length > sizeof(addr.sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(addr.sun_path, path, length);
  // Non-blocking for the connect alone: a daemon that listens but never
  // accepts would otherwise hold us without limit once its queue is full.
  // Its EAGAIN counts as one failed attempt.
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return false;
  const bool connected = connect(fd, reinterpret_cast<struct sockaddr*>(&addr),
                                 static_cast<socklen_t>(sizeof(addr.sun_family) + length)) == 0;
  const int err = errno;
  fcntl(fd, F_SETFL, flags);
  errno = err;
  return connected;
}

int IsFdReady(int fd, unsigned pollMask, unsigned timeoutMsec, int wakeFd) {
  if (fd < 0) {
    g_Debug.PrintAlways("IsFdReady: ERROR: bad parameter for Fd=%d\n", fd);
    return kReadyBadFd;
  }
  if (timeoutMsec == 0) {
    g_Debug.PrintAlways("IsFdReady: ERROR: bad parameter for TimeoutMsec=0(!) on fd=%d\n", fd);
    return kReadyZeroTimeout;
  }
  const time_t start = time(nullptr);
  unsigned rest = timeoutMsec;
  struct pollfd polled[2] = {{fd, static_cast<short>(pollMask), 0}, {wakeFd, POLLIN, 0}};
  struct pollfd& p = polled[0];
  for (;;) {
    p.revents = 0;
    const int rc = poll(polled, wakeFd >= 0 ? 2 : 1, ToPollTimeout(rest));
    if (rc > 0) break;
    if (rc == 0) {
      g_Debug.PrintAlways("IsFdReady: ERROR: Timeout on fd=%d (Timeout=%d, RestTimeout=%d\n", fd,
                          static_cast<int>(timeoutMsec), static_cast<int>(rest));
      return kReadyTimeout;
    }
    if (errno != EINTR) {
      const int err = errno;
      g_Debug.PrintAlways("IsFdReady: ERROR: poll() failed on fd=%d: errno=%d  %s\n", fd, err, strerror(err));
      return kReadyPollError;
    }
    g_Debug.Print(1, "IsFdReady: poll() interrupted due to EINTR on fd=%d --> try to continue!\n", fd);
    // Whole seconds on purpose: the deadline is kept at one-second resolution.
    const unsigned long long elapsed = static_cast<unsigned long long>(time(nullptr) - start) * 1000ull;
    if (elapsed >= timeoutMsec) {
      g_Debug.PrintAlways("IsFdReady: ERROR: Timeout after EINTR on fd=%d (Timeout=%d, RestTimeout=%d\n", fd,
                          static_cast<int>(timeoutMsec), static_cast<int>(rest));
      return kReadyTimeout;
    }
    rest = timeoutMsec - static_cast<unsigned>(elapsed);
  }
  if (wakeFd >= 0 && polled[1].revents != 0) {
    g_Debug.Print(1, "IsFdReady: terminate signaled while waiting on fd=%d\n", fd);
    return kFdWoken;
  }
  if (p.revents & POLLHUP) {
    g_Debug.PrintAlways("IsFdReady: ERROR: Hangup on fd=%d\n", fd);
    return kReadyPollError;
  }
  if (p.revents & (POLLERR | POLLNVAL)) {
    unsigned char byte = 0;
    // The read fetches the pending socket error into errno.
    errno = 0;
    const ssize_t ignored = read(fd, &byte, 1);
    (void)ignored;
    const int err = errno;
    g_Debug.PrintAlways("IsFdReady: ERROR on fd=%d, Result=0x%08X: errno=%d, %s\n", fd, static_cast<unsigned>(byte), err,
                        strerror(err));
    return kReadyError;
  }
  if ((static_cast<unsigned>(p.revents) & pollMask) == pollMask) return static_cast<int>(pollMask);
  g_Debug.PrintAlways(
      "IsFdReady: ERROR on fd=%d, returned pollmask invalid (PollFdStruct.revents=0x%08X, PollMask=0x%08X)\n", fd,
      static_cast<unsigned>(p.revents), pollMask);
  return kReadyError;
}

bool PauseUnlessWoken(int wakeFd) {
  if (wakeFd < 0) {
    sleep(1);
    return true;
  }
  struct pollfd p = {wakeFd, POLLIN, 0};
  return poll(&p, 1, 1000) <= 0;
}

namespace {

// Writes the whole frame in at most kSendPasses passes. 0 or 22.
unsigned SendFrame(int fd, const char* frame, size_t frameLength, unsigned pollMsec, int wakeFd) {
  size_t sent = 0;
  for (int pass = 0; pass < kSendPasses; ++pass) {
    const int retry = kSendPasses - pass;
    const int ready = IsFdReady(fd, POLLOUT, pollMsec, wakeFd);
    if (ready != POLLOUT) {
      g_Debug.Print(4, "SendRequestOnFd: it seems that socket %d is not ready for write (pollresult=%d) -> bail out!\n",
                    fd, ready);
      return kJsonWriteFailed;
    }
    g_Debug.Print(4, "SendRequestOnFd: write request string to socket %d...\n", fd);
    const ssize_t n = WriteSome(fd, frame + sent, frameLength - sent);
    if (n < 0 && errno != EINTR) {
      g_Debug.Print(1, "SendRequestOnFd: sending request on fd=%d failed (outLength=%d, InOutMax=%d) --> bail out\n", fd,
                    static_cast<int>(sent), static_cast<int>(frameLength));
      return kJsonWriteFailed;
    }
    if (n == 0) {
      g_Debug.Print(1,
                    "SendRequestOnFd: sending request on fd=%d failed EOF (outLength=%d, InOutMax=%d, rwresult=%d): "
                    "--> bail out\n",
                    fd, static_cast<int>(sent), static_cast<int>(frameLength), 0);
      return kJsonWriteFailed;
    }
    if (n < 0) {
      g_Debug.Print(1,
                    "SendRequestOnFd: sending request on fd=%d interrupted (errno=EINTR, outLength=%d, InOutMax=%d) "
                    "--> retry=%d\n",
                    fd, static_cast<int>(sent), static_cast<int>(frameLength), retry);
    } else {
      sent += static_cast<size_t>(n);
      if (sent >= frameLength) {
        g_Debug.Print(4, "SendRequestOnFd: sending request on fd=%d done, rwresult=%d\n", fd, static_cast<int>(n));
        return kJsonOk;
      }
      g_Debug.Print(1, "SendRequestOnFd: sending request on fd=%d incomplete (outLength=%d, InOutMax=%d) --> continue=%d\n",
                    fd, static_cast<int>(sent), static_cast<int>(frameLength), retry);
    }
    if (pass + 1 < kSendPasses && !PauseUnlessWoken(wakeFd)) return kJsonWriteFailed;
  }
  // Out of passes: the reply is read all the same.
  return kJsonOk;
}

// The traces of one reply's receive passes.
class ReplyPasses : public FrameReader::Observer {
 public:
  ReplyPasses(int fd, uint32_t length) : m_Fd(fd), m_Length(length) {}
  void Read(ssize_t rwresult) override {
    g_Debug.Print(4, "SendRequestOnFd: data read from socket, rwresult = %d\n", static_cast<int>(rwresult));
  }
  void Incomplete(size_t received, int pass) override {
    g_Debug.Print(1,
                  "SendRequestOnFd: receiving reply on fd=%d incomplete (inLength=%d, InOutMax=%d, "
                  "pCmdJReply->len=%d) --> continue=%d\n",
                  m_Fd, InLength(received), MaxLength(), static_cast<int>(m_Length), Retry(pass));
  }
  void Interrupted(size_t received, int pass) override {
    g_Debug.Print(1,
                  "SendRequestOnFd: receiving reply on fd=%d interrupted (errno=EINTR, inLength=%d, InOutMax=%d) "
                  "--> retry=%d\n",
                  m_Fd, InLength(received), MaxLength(), Retry(pass));
  }
  int InLength(size_t received) const { return static_cast<int>(received + 4); }
  int MaxLength() const { return static_cast<int>(m_Length + 4); }

 private:
  static int Retry(int pass) { return FrameReader::kPasses - pass + 1; }  // counts down from 10
  int m_Fd;
  uint32_t m_Length;
};

unsigned Exchange(int fd, const char* frame, size_t frameLength, unsigned pollMsec, int wakeFd, std::string& reply) {
  if (fd < 0) {
    g_Debug.PrintAlways("SendRequestOnFd: sending request failed (request channel not available)\n");
    return kJsonNoChannel;
  }
  const unsigned rc = SendFrame(fd, frame, frameLength, pollMsec, wakeFd);
  if (rc != kJsonOk) return rc;

  const int ready = IsFdReady(fd, POLLIN, pollMsec, wakeFd);
  if (ready != POLLIN) {
    g_Debug.Print(4, "SendRequestOnFd: it seems that socket %d is not ready for read (pollresult=%d) -> bail out!\n", fd,
                  ready);
    return kJsonNotReadable;
  }
  // Each wait for a piece of the reply is bounded by the request's time-out.
  FrameReader reader(fd, ToPollTimeout(pollMsec), wakeFd);
  uint32_t length = 0;
  ssize_t n = 0;
  if (!reader.ReadLength(length, n)) {
    g_Debug.Print(1, "SendRequestOnFd: something is fishy on fd=%d (rwresult=%d, errno=%d)\n", fd, static_cast<int>(n),
                  errno);
    return kJsonReadFailed;
  }

  // A reply over the cap is refused like one that cannot be allocated.
  const Buffer buffer = FrameReader::Allocate(length);
  if (!buffer) {
    g_Debug.PrintAlways("SendRequestOnFd: ERROR: Can't allocate memory for JSON reply on fd=%d (size=%d)!\n", fd,
                        static_cast<int>(static_cast<size_t>(length) + FrameReader::kSpareBytes));
    return kJsonNoMemory;
  }
  g_Debug.Print(4, "SendRequestOnFd: read reply on fd=%d, ReplyLen=%d ...\n", fd, static_cast<int>(length));

  ReplyPasses passes(fd, length);
  size_t received = 0;
  const FrameReader::Result result = reader.ReadPayload(buffer.get(), length, received, passes, false);
  if (result == FrameReader::Result::kIncomplete) {
    g_Debug.Print(1,
                  "SendRequestOnFd: receiving reply on fd=%d failed (inLength=%d, InOutMax=%d, pCmdJReply->len=%d)\n",
                  fd, passes.InLength(received), passes.MaxLength(), static_cast<int>(length));
    return kJsonReadFailed;
  }
  if (result != FrameReader::Result::kComplete) {
    // A failed read, a wait past the time-out, or the caller stopping.
    g_Debug.Print(1, "SendRequestOnFd: receiving reply on fd=%d failed (inLength=%d, InOutMax=%d) --> bail out\n", fd,
                  passes.InLength(received), passes.MaxLength());
    return kJsonReadFailed;
  }
  g_Debug.Print(4, "SendRequestOnFd: receiving reply on fd=%d done, inLength=%d\n", fd, static_cast<int>(length + 4));
  reply.assign(buffer.get(), strnlen(buffer.get(), length));
  if (g_Debug.IsEnabled())
    g_Debug.Print(4, "CSwitchClient::JsonSendRequest: JSON reply on fd=%d, BytesReceived=%d: %s\n", fd,
                  static_cast<int>(length), reply.c_str());
  return kJsonOk;
}

}  // namespace

unsigned JsonSendRequest(int fd, const char* request, std::string& reply, unsigned timeout, int wakeFd) {
  const char* text = request != nullptr ? request : "";
  const size_t textLength = std::strlen(text) + 1;
  if (textLength > UINT32_MAX - FrameReader::kSpareBytes) {
    g_Debug.Print(1, "CSwitchClient::JsonSendRequest: ERROR Failed to allocate JSON reply buffer!\n");
    return kJsonNoMemory;
  }
  Buffer frame(static_cast<char*>(std::malloc(textLength + FrameReader::kSpareBytes)));
  if (!frame) {
    g_Debug.Print(1, "CSwitchClient::JsonSendRequest: ERROR Failed to allocate JSON reply buffer!\n");
    return kJsonNoMemory;
  }
  const uint32_t length = static_cast<uint32_t>(textLength);
  std::memcpy(frame.get(), &length, sizeof(length));
  std::memcpy(frame.get() + sizeof(length), text, textLength);
  g_Debug.Print(4, "CSwitchClient::JsonSendRequest: send JSON request string: %s\n", text);

  // Seconds to milliseconds; callers pass 30000, so a wait may be very long.
  const unsigned long long pollMsec =
      static_cast<unsigned long long>(timeout == 0 ? kChannelTimeout : timeout) * 1000ull;
  const unsigned rc = Exchange(fd, frame.get(), sizeof(length) + textLength,
                               pollMsec > UINT_MAX ? UINT_MAX : static_cast<unsigned>(pollMsec), wakeFd, reply);
  if (rc != kJsonOk) g_Debug.Print(4, "CSwitchClient::JsonSendRequest: on fd=%d failed\n", fd);
  return rc;
}

std::string BuildInitChannelBlock(const char* clientName, int fd) {
  std::string block(kInitBlockSize, '\0');
  if (clientName != nullptr) {
    const size_t length = strnlen(clientName, kInitBlockNameSize);
    std::memcpy(&block[0], clientName, length);
  }
  LittleEndian::Write32(static_cast<uint32_t>(fd), reinterpret_cast<unsigned char*>(&block[kInitBlockFdOffset]));
  return block;
}

bool SendInitChannelCommand(int fd, const char* clientName, unsigned channelCode, unsigned timeout, int wakeFd) {
  SipJson record;
  record.JsonInit();
  SipJson::GenericValue& cmd = record.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", kInitChannelOpCode, false);
  SipJson::SetCmdElemValue(cmd, "OE", channelCode, true);
  SipJson::SetCmdElemValue(cmd, "OI", 0, true);
  SipJson::SetCmdElemValue(cmd, "CA", 0, false);
  cmd.RemoveMember("ST");

  auto& alloc = record.Document().GetAllocator();
  const std::string block = BuildInitChannelBlock(clientName, fd);
  SipJson::GenericValue raw(rapidjson::kArrayType);
  raw.Reserve(static_cast<rapidjson::SizeType>(block.size()), alloc);
  for (char byte : block) raw.PushBack(static_cast<unsigned>(static_cast<unsigned char>(byte)), alloc);
  SipJson::GenericValue data(rapidjson::kObjectType);
  data.AddMember("RAW", raw, alloc);
  cmd.RemoveMember("DA");
  cmd.AddMember("DA", data, alloc);

  std::string reply;
  const unsigned rc = JsonSendRequest(fd, record.Serialize().c_str(), reply, timeout, wakeFd);
  if (rc == kJsonNoMemory) {
    g_Debug.PrintAlways("SendInitChannelCommand: Can't initialize Request Channel on fd=%d --> close it !\n", fd);
    return false;
  }
  // Any other failure shows when the channel is used.
  record.ParseReply(reply);
  std::vector<unsigned char> answer;
  uint32_t daemonFd = static_cast<uint32_t>(-1);
  if (record.GetCmdDataStream(record.GetCmdIndex(), answer))
    LittleEndian::Read32(answer.data(), answer.size(), kInitBlockFdOffset, daemonFd);
  g_Debug.Print(4, "SendInitChannelCommand: Request Channel (type=JSON) opened and initialized (fd=%d, omadfd=%d)\n", fd,
                static_cast<int>(daemonFd));
  return true;
}

int JsonAttach(const char* path, const char* clientName) {
  const char* where = path != nullptr ? path : "";
  const char* name = clientName != nullptr ? clientName : "";
  g_Debug.Print(4, "JsonAttach: Connect from client \"%s\" to socket %s...\n", name, where);
  int fd = -1;
  for (int attempt = 0; attempt < kAttachAttempts; ++attempt) {
    g_Debug.Print(4, "\nJsonAttach: connect to omad JSON socket \"%s\"...", where);
    fd = OpenDevice(where);
    if (fd >= 0) break;
    const int err = errno;
    usleep(kAttachPauseUsec);
    if (attempt % kTraceEveryAttempts == 0)
      g_Debug.Print(3, "JsonAttach: Connect to socket %s failed (thrId=0x%08X): %s --> retry #%d\n", where, ThreadId(),
                    strerror(err), attempt + 1);
  }
  if (fd < 0) {
    g_Debug.PrintAlways("JsonAttach: ERROR: cannot open omad JSON request channel %s (thrId=0x%08X)\n", where,
                        ThreadId());
    return fd;
  }
  g_Debug.Print(4, "JsonAttach: Client \"%s\" successfully connected to socket %s\n", name, where);
  g_Debug.Print(4, "JsonAttach: Request channel to %s (fd=%d, Timeout=%d, Retries=%d msec) opened (thrId=0x%08X)\n",
                where, fd, static_cast<int>(kChannelTimeout), kSendPasses, ThreadId());
  SendInitChannelCommand(fd, name, kJsonRequestChannel, kChannelTimeout);
  return fd;
}

void JsonDetach(int fd, const char* /*path*/) {
  if (fd < 0) return;
  g_Debug.Print(4, "JsonAttach: Disconnecting from socket...\n");
  close(fd);
  g_Debug.Print(4, "JsonAttach: -> disconnected\n");
}

int JsonRegisterForEvents(const char* clientName, int wakeFd) {
  const std::string path = CSystemRoot::Path(kEventSocketPath);
  int fd = -1;
  for (int attempt = 0; attempt < kRegisterAttempts; ++attempt) {
    fd = OpenDevice(path.c_str());
    if (fd >= 0) break;
    const int err = errno;
    if (attempt % kTraceEveryAttempts == 0)
      g_Debug.PrintAlways("OpenEventChannel: Connect to %s failed: errno=%d %s --> retry (%d)\n", path.c_str(), err,
                          strerror(err), attempt);
    if (!PauseUnlessWoken(wakeFd)) {
      g_Debug.Print(1, "OpenEventChannel: terminate signaled --> bail out\n");
      return -1;
    }
  }
  if (fd < 0) {
    g_Debug.PrintAlways("OpenEventChannel: Connect to %s failed after %d retries --> bail out\n", path.c_str(),
                        kRegisterAttempts);
    return -1;
  }
  g_Debug.Print(2, "OpenEventChannel: Event Channel to %s (fd=%d) opened\n", path.c_str(), fd);
  if (!SendInitChannelCommand(fd, clientName, kJsonEventChannel, kChannelTimeout, wakeFd)) {
    g_Debug.Print(2, "JsonRegisterForEvents: client cannot register for events on fd=%d -> close it!\n", fd);
    CloseEventChannel(fd);
    return -1;
  }
  g_Debug.Print(2, "JsonRegisterForEvents: client registered for events on fd=%d\n", fd);
  return fd;
}

void CloseEventChannel(int fd) {
  const std::string path = CSystemRoot::Path(kEventSocketPath);
  if (fd >= 0) {
    close(fd);
    g_Debug.Print(4, "CloseEventChannel: Event channel to %s (fd=%d) closed\n", path.c_str(), fd);
  } else {
    g_Debug.Print(4, "CloseEventChannel: Event channel to %s already closed - ignored\n", path.c_str());
  }
}

void JsonUnregisterForEvents(int fd) {
  if (fd >= 0) {
    g_Debug.Print(2, "JsonUnregisterForEvents: unregister event channel, fd=%d\n", fd);
    CloseEventChannel(fd);
  }
  g_Debug.Print(2, "JsonUnregisterForEvents: client unregistered for events\n");
}

int ReOpenEventChannel(const char* clientName, int oldFd, int wakeFd) {
  const std::string path = CSystemRoot::Path(kEventSocketPath);
  bool woken = false;
  if (oldFd >= 0) {
    CloseEventChannel(oldFd);
    woken = !PauseUnlessWoken(wakeFd);
  }
  const int fd = woken ? -1 : JsonRegisterForEvents(clientName, wakeFd);
  if (fd >= 0)
    g_Debug.PrintAlways("ReOpenEventChannel: Event Channel to %s re-opened (fd=%d)\n", path.c_str(), fd);
  else
    g_Debug.PrintAlways("ReOpenEventChannel: ERROR: Can't re-open Event Channel to %s\n", path.c_str());
  return fd;
}
