#pragma once

#include <cstddef>
#include <string>

// Socket channel to the agent daemon: length-framed JSON texts over Unix
// stream sockets. Every frame is a 4-byte host-order length counting the
// text and its terminating NUL, then the text and the NUL.

// Channel codes of the init-channel command.
constexpr unsigned kJsonRequestChannel = 0x1100;
constexpr unsigned kJsonEventChannel = 0x1200;
// Operation code of the init-channel command.
constexpr unsigned kInitChannelOpCode = 0xFFA0;
// Size of the init-channel data block and the offset of the descriptor in it.
constexpr size_t kInitBlockSize = 218;
constexpr size_t kInitBlockNameSize = 65;
constexpr size_t kInitBlockFdOffset = 65;
// Timeout every caller passes to SendInitChannelCommand, and the one a
// request with timeout 0 gets (seconds).
constexpr unsigned kChannelTimeout = 30000;

// Results of JsonSendRequest.
enum : unsigned {
  kJsonOk = 0,
  kJsonNotReadable = 5,
  kJsonReadFailed = 6,
  kJsonNoMemory = 17,
  kJsonNoChannel = 19,
  kJsonWriteFailed = 22,
};

// The connected descriptor, or one of these.
constexpr int kOpenNoSocket = -1;
constexpr int kOpenConnectFailed = -2;
int OpenDevice(const char* path);

// Connects fd to the Unix socket at path; false with errno telling why
// (ENAMETOOLONG when the path does not fit a socket address, EAGAIN when
// the listener's queue is full: the connect never blocks).
bool ConnectUnixSocket(int fd, const char* path);

// Every wait of the event thread also watches its termination pipe, passed
// as wakeFd (-1: nothing to watch).

// pollMask when fd shows all its bits, else one of these.
constexpr int kReadyBadFd = -3;
constexpr int kReadyZeroTimeout = -4;
constexpr int kReadyPollError = -6;  // poll() failed, or hang-up
constexpr int kReadyError = -9;      // error condition, or not every bit of the mask
constexpr int kReadyTimeout = -15;
constexpr int kFdWoken = -20;  // wakeFd became readable first
int IsFdReady(int fd, unsigned pollMask, unsigned timeoutMsec, int wakeFd = -1);

// Sleeps one second; false, at once, when wakeFd is or becomes readable.
bool PauseUnlessWoken(int wakeFd);

// One request/reply exchange; `timeout` in seconds (0 means 30000).
unsigned JsonSendRequest(int fd, const char* request, std::string& reply, unsigned timeout, int wakeFd = -1);

// Registers a freshly opened channel with the daemon. False only when memory
// ran out; any other failure shows later, when the channel is used.
bool SendInitChannelCommand(int fd, const char* clientName, unsigned channelCode, unsigned timeout,
                            int wakeFd = -1);

// The 218-byte init block for a client name and descriptor.
std::string BuildInitChannelBlock(const char* clientName, int fd);

int JsonAttach(const char* path, const char* clientName);
void JsonDetach(int fd, const char* path);

// Event channel on /dev/omadaj. A signal on wakeFd ends the connect
// attempts (-1).
int JsonRegisterForEvents(const char* clientName, int wakeFd = -1);
void CloseEventChannel(int fd);
void JsonUnregisterForEvents(int fd);
int ReOpenEventChannel(const char* clientName, int oldFd, int wakeFd = -1);
