#include "agent/JsonChannel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

// The text of the client's next frame; "<eof>" when it sent none, or a broken one.
std::string Request(int fd) { return ReadFrame(fd).value_or("<eof>"); }

// A connected socket pair whose peer end runs a script on its own thread.
struct SocketPair {
  SocketPair() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) ADD_FAILURE() << "socketpair";
    client = fds[0];
    peer = fds[1];
  }
  ~SocketPair() {
    if (thread.joinable()) thread.join();
    close(client);
    if (peer >= 0) close(peer);
  }
  void ClosePeer() { close(std::exchange(peer, -1)); }
  unsigned Send(const char* request, std::string& reply, unsigned timeout = 5) {
    const unsigned rc = JsonSendRequest(client, request, reply, timeout);
    if (thread.joinable()) thread.join();
    return rc;
  }

  int client = -1, peer = -1;
  std::thread thread;
};

// Closes the peer once the client has read everything written to it.
void WaitUntilRead(SocketPair& pair) {
  int queued = 1;
  while (ioctl(pair.peer, SIOCOUTQ, &queued) == 0 && queued > 0) std::this_thread::yield();
  pair.ClosePeer();
}

// Plain exchanges show in the whole-run trace; a NUL inside the payload does not.
TEST(JsonChannel, ReplyTextEndsAtTheFirstNulOrTheAnnouncedLength) {
  SocketPair pair;
  pair.thread = std::thread([fd = pair.peer] {
    EXPECT_EQ(Request(fd), "");  // empty request: a 5-byte frame the reader accepts
    EXPECT_TRUE(WriteAll(fd, LengthWord(7) + std::string("ab\0cdef", 7)));
    EXPECT_EQ(Request(fd), "");
    EXPECT_TRUE(WriteAll(fd, LengthWord(5) + "vwxyz"));
  });
  std::string reply;
  EXPECT_EQ(JsonSendRequest(pair.client, "", reply, 5), kJsonOk);
  EXPECT_EQ(reply, "ab");
  EXPECT_EQ(pair.Send(nullptr, reply), kJsonOk);
  EXPECT_EQ(reply, "vwxyz");
}

// A reply in pieces arrives whole: each wait lasts the request's time-out
// (seconds), and a pass that left the reply short pauses a second first.
TEST(JsonChannel, ReplyInPiecesStillArrivesWhole) {
  const std::string frame = Framed(Sip("{\"ST\":0,\"DA\":12345}"));
  SocketPair pair;
  pair.thread = std::thread([frame, fd = pair.peer] {
    Request(fd);
    // The length word itself is split as well.
    for (size_t at : {0, 2, 12, 22}) {
      if (at != 0) std::this_thread::sleep_for(std::chrono::milliseconds(at == 22 ? 1400 : 100));
      EXPECT_TRUE(WriteAll(fd, frame.substr(at, at == 22 ? std::string::npos : (at == 0 ? 2 : 10))));
    }
  });
  std::string reply;
  const auto start = Clock::now();
  EXPECT_EQ(pair.Send("{}", reply, 2), kJsonOk);
  EXPECT_EQ(reply, frame.substr(4, frame.size() - 5));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(1900));  // two pauses
}

// Ten passes that each write only part of the request: the reply is read
// all the same.
TEST(JsonChannel, RequestStillShortAfterTenPassesReadsTheReply) {
  SocketPair pair;
  const int small = 4096;
  ASSERT_EQ(setsockopt(pair.client, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
  ASSERT_EQ(fcntl(pair.client, F_SETFL, O_NONBLOCK), 0);
  std::atomic<bool> done{false};
  pair.thread = std::thread([&done, fd = pair.peer] {
    EXPECT_TRUE(WriteAll(fd, Framed("{}")));
    for (char sink[16384]; !done; std::this_thread::sleep_for(std::chrono::milliseconds(300)))
      while (recv(fd, sink, sizeof sink, MSG_DONTWAIT) > 0) {
      }
  });
  std::string reply;
  const auto start = Clock::now();
  EXPECT_EQ(JsonSendRequest(pair.client, std::string(1 << 20, 'x').c_str(), reply, 5), kJsonOk);
  EXPECT_EQ(reply, "{}");
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(8500));  // nine pauses between ten passes
  done = true;
}

TEST(JsonChannel, FailuresGiveTheirCodesAndLeaveTheReply) {
  // The peer takes the request (or only waits for it, leaving it unread so
  // that its close resets), writes `reply`, then `late` after 2.5 s, and
  // closes once the client has read everything.
  const struct {
    const char* name;
    bool takeRequest;
    std::string reply, late;
    bool close;
    unsigned expected, timeout;
  } cases[] = {
      {"peer hangs up instead of replying", true, "", "", true, kJsonNotReadable, 5},
      {"length word cut short", true, LengthWord(9).substr(0, 2), "", true, kJsonReadFailed, 5},
      {"lying length word, then a reset", false, LengthWord(100) + "{\"SIP\"", "", true, kJsonReadFailed, 5},
      // The rest comes, but later than the request's time-out allows.
      {"payload stalls past the time-out", true, LengthWord(3) + "{", std::string("}\0", 2), false, kJsonReadFailed, 1},
      // 0xFFFFFFF0 + 20 wraps in 32 bits: neither a tiny buffer to overrun
      // nor a multi-gigabyte reservation.
      {"length 0xFFFFFFF0", true, LengthWord(~15u) + "{}", "", false, 17, 5},
      {"length 0x7FFFFFFF", true, LengthWord(~0u >> 1) + "{}", "", false, 17, 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SocketPair pair;
    pair.thread = std::thread([&pair, &c] {
      struct pollfd request = {pair.peer, POLLIN, 0};
      if (c.takeRequest) Request(pair.peer);
      else poll(&request, 1, 5000);
      EXPECT_TRUE(WriteAll(pair.peer, c.reply));
      if (!c.late.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(2500));
      EXPECT_TRUE(WriteAll(pair.peer, c.late));
      if (c.close) WaitUntilRead(pair);
    });
    std::string reply = "untouched";
    const auto start = Clock::now();
    EXPECT_EQ(pair.Send("{}", reply, c.timeout), c.expected);
    EXPECT_EQ(reply, "untouched");
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
  }
  std::string reply = "untouched";
  SocketPair gone;
  gone.ClosePeer();
  EXPECT_EQ(gone.Send("{}", reply), kJsonWriteFailed);
  EXPECT_EQ(reply, "untouched");
  ScopedSystemRoot root;
  EXPECT_EQ(OpenDevice((root.root() + "/nothing").c_str()), -2);
  EXPECT_EQ(OpenDevice((root.root() + "/" + std::string(200, 'a')).c_str()), -2);
}

TEST(JsonChannel, IsFdReadyReportsEachOutcome) {
  SocketPair pair;
  EXPECT_EQ(IsFdReady(-1, POLLIN, 10), -3);
  EXPECT_EQ(IsFdReady(pair.client, POLLIN, 0), -4);
  EXPECT_EQ(IsFdReady(pair.client, POLLOUT, 100), POLLOUT);
  EXPECT_EQ(IsFdReady(pair.client, POLLIN, 50), -15);
  ASSERT_TRUE(WriteAll(pair.peer, "x"));
  EXPECT_EQ(IsFdReady(pair.client, POLLIN, 100), POLLIN);
  EXPECT_EQ(IsFdReady(pair.client, POLLIN | POLLPRI, 100), -9);  // mask only partly shown
  pair.ClosePeer();
  EXPECT_EQ(IsFdReady(pair.client, POLLIN, 100), -6);
}

}  // namespace
