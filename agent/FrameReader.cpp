#include "agent/FrameReader.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>

#include "agent/JsonChannel.h"

FrameReader::Wait FrameReader::WaitForData() const {
  struct pollfd p[2] = {{m_Fd, POLLIN, 0}, {m_WakeFd, POLLIN, 0}};
  for (;;) {
    const int rc = poll(p, m_WakeFd >= 0 ? 2 : 1, m_WaitMsec);
    // Stopping wins over data that came at the same time.
    if (rc > 0) return m_WakeFd >= 0 && p[1].revents != 0 ? Wait::kWoken : Wait::kReadable;
    if (rc == 0) {
      errno = ETIMEDOUT;
      return Wait::kFailed;
    }
    if (errno != EINTR) return Wait::kFailed;
  }
}

bool FrameReader::ReadLength(uint32_t& length, ssize_t& rwresult) {
  unsigned char word[sizeof length] = {0, 0, 0, 0};
  rwresult = read(m_Fd, word, sizeof word);
  if (rwresult < 1) return false;
  for (size_t got = static_cast<size_t>(rwresult); got < sizeof word; got += static_cast<size_t>(rwresult)) {
    if (WaitForData() != Wait::kReadable) {
      rwresult = -1;
      return false;
    }
    do {
      rwresult = read(m_Fd, word + got, sizeof word - got);
    } while (rwresult < 0 && errno == EINTR);
    if (rwresult < 1) return false;
  }
  std::memcpy(&length, word, sizeof word);
  return true;
}

FrameReader::Result FrameReader::ReadPayload(char* data, uint32_t length, size_t& received, Observer& observer,
                                             bool emptyFirstPassEnds) {
  received = 0;
  if (length == 0) return Result::kComplete;  // nothing to wait for
  for (int pass = 1; pass <= kPasses; ++pass) {
    const Wait wait = WaitForData();
    if (wait == Wait::kWoken) return Result::kWoken;
    if (wait == Wait::kFailed) return Result::kFailed;
    const ssize_t n = read(m_Fd, data + received, length - received);
    const int err = errno;
    observer.Read(n);
    if (n < 0 && err != EINTR) return Result::kFailed;
    if (n == 0 && pass == 1 && emptyFirstPassEnds) return Result::kEndOfFile;
    if (n < 0) {
      observer.Interrupted(received, pass);
    } else {
      received += static_cast<size_t>(n);
      if (received >= length) return Result::kComplete;
      observer.Incomplete(received, pass);
    }
    if (pass < kPasses && !PauseUnlessWoken(m_WakeFd)) return Result::kWoken;
  }
  return Result::kIncomplete;
}

FrameReader::Buffer FrameReader::Allocate(uint32_t length) {
  if (!WithinCap(length)) return nullptr;
  // Sized in size_t: length + the spare bytes must not wrap in 32 bits.
  Buffer buffer(static_cast<char*>(std::malloc(static_cast<size_t>(length) + kSpareBytes)));
  if (buffer) std::memset(buffer.get() + length, 0, kSpareBytes);
  return buffer;
}
