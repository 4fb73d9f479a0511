#include "agent/JsonChannel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "agent/SipJson.h"
#include "runtime/CSystemRoot.h"
#include "tests/support/FakeAgentDaemon.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string LengthWord(uint32_t length) { return std::string(reinterpret_cast<const char*>(&length), 4); }

// Reads one whole frame from fd; the payload as sent (including its NUL).
std::string ReadFrame(int fd) {
  uint32_t length = 0;
  size_t got = 0;
  while (got < 4) {
    ssize_t n = read(fd, reinterpret_cast<char*>(&length) + got, 4 - got);
    if (n <= 0) return "<eof>";
    got += static_cast<size_t>(n);
  }
  std::string payload(length, '\0');
  got = 0;
  while (got < length) {
    ssize_t n = read(fd, &payload[got], length - got);
    if (n <= 0) return "<eof>";
    got += static_cast<size_t>(n);
  }
  return payload;
}

void WriteAll(int fd, const std::string& bytes) {
  ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

// The client end and the peer end of one connected stream socket pair; the
// peer runs the script on its own thread.
class SocketPairTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    client_ = fds[0];
    peer_ = fds[1];
  }
  void TearDown() override {
    if (peerThread_.joinable()) peerThread_.join();
    if (client_ >= 0) close(client_);
    if (peer_ >= 0) close(peer_);
  }
  template <typename Script>
  void RunPeer(Script script) {
    peerThread_ = std::thread([this, script] { script(peer_); });
  }
  void ClosePeer() {
    close(peer_);
    peer_ = -1;
  }

  int client_ = -1;
  int peer_ = -1;
  std::thread peerThread_;
};

TEST_F(SocketPairTest, FramesTheRequestAndReturnsTheReplyText) {
  std::string seen;
  RunPeer([&seen](int fd) {
    seen = ReadFrame(fd);
    WriteAll(fd, FakeAgentDaemon::Frame("{\"answer\":1}"));
  });
  std::string reply = "old";
  EXPECT_EQ(JsonSendRequest(client_, "{\"q\":2}", reply, 5), kJsonOk);
  peerThread_.join();
  EXPECT_EQ(seen, std::string("{\"q\":2}\0", 8));
  EXPECT_EQ(reply, "{\"answer\":1}");
}

TEST_F(SocketPairTest, EmptyRequestIsAFiveByteFrame) {
  std::string raw;
  RunPeer([&raw](int fd) {
    char buffer[16];
    ssize_t n = read(fd, buffer, sizeof(buffer));
    raw.assign(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    WriteAll(fd, FakeAgentDaemon::Frame(""));
  });
  std::string reply = "old";
  EXPECT_EQ(JsonSendRequest(client_, "", reply, 5), kJsonOk);
  peerThread_.join();
  EXPECT_EQ(raw, LengthWord(1) + std::string(1, '\0'));
  EXPECT_EQ(reply, "");
}

TEST_F(SocketPairTest, ReplyTextEndsAtTheFirstNulOrAtItsLength) {
  RunPeer([](int fd) {
    ReadFrame(fd);
    WriteAll(fd, LengthWord(7) + std::string("ab\0cdef", 7));
    ReadFrame(fd);
    // No terminator inside the announced length.
    WriteAll(fd, LengthWord(5) + "vwxyz");
  });
  std::string reply;
  EXPECT_EQ(JsonSendRequest(client_, "1", reply, 5), kJsonOk);
  EXPECT_EQ(reply, "ab");
  EXPECT_EQ(JsonSendRequest(client_, "2", reply, 5), kJsonOk);
  EXPECT_EQ(reply, "vwxyz");
}

TEST_F(SocketPairTest, ReplyInPiecesStillArrivesWhole) {
  const std::string frame = FakeAgentDaemon::Frame("{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0,\"DA\":12345}]}}");
  RunPeer([frame](int fd) {
    ReadFrame(fd);
    // The length word itself is split as well.
    WriteAll(fd, frame.substr(0, 2));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    WriteAll(fd, frame.substr(2, 10));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    WriteAll(fd, frame.substr(12, 10));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    WriteAll(fd, frame.substr(22));
  });
  std::string reply;
  const auto start = Clock::now();
  EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 5), kJsonOk);
  EXPECT_EQ(reply, frame.substr(4, frame.size() - 5));
  // Paced at about a second per extra piece, never much more.
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
}

TEST_F(SocketPairTest, TransportFailuresGiveTheirCodes) {
  std::string reply = "untouched";
  EXPECT_EQ(JsonSendRequest(-1, "{}", reply, 5), kJsonNoChannel);
  EXPECT_EQ(reply, "untouched");

  // Peer gone before the request: not writable.
  ClosePeer();
  EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 5), kJsonWriteFailed);
  EXPECT_EQ(reply, "untouched");
}

TEST_F(SocketPairTest, PeerClosingInsteadOfReplyingIsNotReadable) {
  RunPeer([](int fd) {
    ReadFrame(fd);
    shutdown(fd, SHUT_RDWR);
  });
  std::string reply = "untouched";
  EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 5), kJsonNotReadable);
  EXPECT_EQ(reply, "untouched");
}

TEST_F(SocketPairTest, NoReplyWithinTheTimeoutIsNotReadable) {
  RunPeer([](int fd) { ReadFrame(fd); });
  std::string reply;
  EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 1), kJsonNotReadable);
}

TEST_F(SocketPairTest, HugeLengthWordsAreRefusedWithoutAllocating) {
  // 0xFFFFFFF0 + 20 wraps in 32 bits; neither may become a tiny buffer that
  // the payload then overruns, nor a multi-gigabyte reservation.
  for (uint32_t length : {0xFFFFFFFFu, 0xFFFFFFF0u, 0x7FFFFFFFu}) {
    RunPeer([length](int fd) {
      ReadFrame(fd);
      WriteAll(fd, LengthWord(length) + "{\"SIP\":{}}");
    });
    std::string reply = "untouched";
    EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 5), kJsonNoMemory) << length;
    EXPECT_EQ(reply, "untouched");
    peerThread_.join();
    // Drop what the client left unread so the next case starts clean.
    char sink[64];
    while (recv(client_, sink, sizeof(sink), MSG_DONTWAIT) > 0) {
    }
  }
}

TEST_F(SocketPairTest, ShortReplyThatNeverCompletesFailsAfterBoundedPasses) {
  RunPeer([](int fd) {
    ReadFrame(fd);
    WriteAll(fd, LengthWord(100) + "{\"SIP\"");
    shutdown(fd, SHUT_WR);
  });
  std::string reply = "untouched";
  const auto start = Clock::now();
  EXPECT_EQ(JsonSendRequest(client_, "{}", reply, 5), kJsonReadFailed);
  EXPECT_EQ(reply, "untouched");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(15));
}

TEST_F(SocketPairTest, IsFdReadyReportsEachOutcome) {
  EXPECT_EQ(IsFdReady(-1, POLLIN, 10), -3);
  EXPECT_EQ(IsFdReady(client_, POLLIN, 0), -4);
  EXPECT_EQ(IsFdReady(client_, POLLOUT, 100), POLLOUT);
  EXPECT_EQ(IsFdReady(client_, POLLIN, 50), -15);
  WriteAll(peer_, "x");
  EXPECT_EQ(IsFdReady(client_, POLLIN, 100), POLLIN);
  EXPECT_EQ(IsFdReady(client_, POLLIN | POLLPRI, 100), -9);  // mask only partly shown
  ClosePeer();
  EXPECT_EQ(IsFdReady(client_, POLLIN, 100), -6);
}

TEST(InitChannelBlock, NameDescriptorAndPadding) {
  const std::string block = BuildInitChannelBlock("Zentrix", 0x01020304);
  ASSERT_EQ(block.size(), 218u);
  EXPECT_EQ(block.substr(0, 7), "Zentrix");
  EXPECT_EQ(block.substr(7, 58), std::string(58, '\0'));
  EXPECT_EQ(block.substr(65, 4), std::string("\x04\x03\x02\x01", 4));
  EXPECT_EQ(block.substr(69), std::string(149, '\0'));

  // A name that would not fit is cut at 65 bytes; the descriptor stays put.
  const std::string longName(80, 'n');
  const std::string cut = BuildInitChannelBlock(longName.c_str(), 9);
  EXPECT_EQ(cut.substr(0, 65), std::string(65, 'n'));
  EXPECT_EQ(static_cast<unsigned char>(cut[65]), 9u);
  EXPECT_EQ(BuildInitChannelBlock(nullptr, 0), std::string(218, '\0'));
}

TEST_F(SocketPairTest, InitCommandTextOnTheWire) {
  std::string seen;
  RunPeer([&seen](int fd) {
    seen = ReadFrame(fd);
    WriteAll(fd, FakeAgentDaemon::Frame(FakeAgentDaemon::InitReply()));
  });
  EXPECT_TRUE(SendInitChannelCommand(client_, "Zentrix", kJsonRequestChannel, kChannelTimeout));
  peerThread_.join();

  std::string raw;
  const unsigned char name[] = "Zentrix";
  for (int i = 0; i < 218; ++i) {
    unsigned byte = 0;
    if (i < 7) byte = name[i];
    if (i == 65) byte = static_cast<unsigned>(client_) & 0xFF;
    raw += (i ? "," : "") + std::to_string(byte);
  }
  const std::string expected =
      "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":65440,\"OE\":4352,\"CA\":0,\"DA\":{\"RAW\":[" + raw + "]}}]}}";
  EXPECT_EQ(seen, expected + std::string(1, '\0'));
}

TEST_F(SocketPairTest, InitCommandCountsAsDoneWhenTheDaemonMisbehaves) {
  RunPeer([](int fd) {
    ReadFrame(fd);
    WriteAll(fd, FakeAgentDaemon::Frame("not json"));
  });
  EXPECT_TRUE(SendInitChannelCommand(client_, "x", kJsonEventChannel, 5));
  peerThread_.join();
  ClosePeer();
  EXPECT_TRUE(SendInitChannelCommand(client_, "x", kJsonEventChannel, 5));
}

TEST(OpenDevice, FailsCleanlyOnMissingOrOverlongPaths) {
  ScopedSystemRoot root;
  EXPECT_EQ(OpenDevice((root.root() + "/nothing").c_str()), -2);
  const std::string longPath = root.root() + "/" + std::string(200, 'a');
  EXPECT_EQ(OpenDevice(longPath.c_str()), -2);
}

class ChannelDaemonTest : public ::testing::Test {
 protected:
  ScopedSystemRoot root_;
  static FakeAgentDaemon::Reply Answer(const std::string& request) {
    if (FakeAgentDaemon::IsInit(request)) return FakeAgentDaemon::Whole(FakeAgentDaemon::InitReply());
    return FakeAgentDaemon::Whole("{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]}}");
  }
};

TEST_F(ChannelDaemonTest, AttachRegistersARequestChannel) {
  root_.makeDirs("/dev");
  const std::string path = CSystemRoot::Path("/dev/omadsj");
  FakeAgentDaemon daemon(path, Answer);
  const int fd = JsonAttach(path.c_str(), "Tester");
  ASSERT_GE(fd, 0);
  std::string reply;
  EXPECT_EQ(JsonSendRequest(fd, "{\"SIP\":{\"V\":1,\"CMD\":[]}}", reply, 5), kJsonOk);
  JsonDetach(fd, path.c_str());
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);

  const auto requests = daemon.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_NE(requests[0].find("\"OC\":65440,\"OE\":4352,\"CA\":0"), std::string::npos);
  EXPECT_NE(requests[0].find("\"RAW\":[84,101,115,116,101,114,0,"), std::string::npos);  // "Tester"
}

TEST_F(ChannelDaemonTest, AttachGivesUpAfterItsRetries) {
  const auto start = Clock::now();
  EXPECT_LT(JsonAttach(CSystemRoot::Path("/dev/omadsj").c_str(), "Tester"), 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  JsonDetach(-1, "/dev/omadsj");  // nothing to close
}

TEST_F(ChannelDaemonTest, EventChannelRegistersReopensAndCloses) {
  root_.makeDirs("/dev");
  FakeAgentDaemon daemon(CSystemRoot::Path("/dev/omadaj"), Answer);
  const int fd = JsonRegisterForEvents("Tester");
  ASSERT_GE(fd, 0);
  const int again = ReOpenEventChannel("Tester", fd);
  ASSERT_GE(again, 0);
  JsonUnregisterForEvents(again);
  EXPECT_EQ(fcntl(again, F_GETFD), -1);
  JsonUnregisterForEvents(-1);
  CloseEventChannel(-1);

  const auto requests = daemon.requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const std::string& r : requests) EXPECT_NE(r.find("\"OC\":65440,\"OE\":4608,\"CA\":0"), std::string::npos);
}

}  // namespace
