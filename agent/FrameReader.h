#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

// Reads one length-framed text off a channel, replies and events alike: the
// 4-byte length word, then the payload in at most kPasses passes. A pass
// waits for data as a blocking read would, but no longer than the reader's
// wait limit and not past a signal on its wake descriptor, then reads what
// has come; a pass that leaves the payload incomplete is followed by a
// one-second pause. Callers keep their own traces and decide what each
// outcome means for their channel.
class FrameReader {
 public:
  static constexpr int kPasses = 10;
  // The daemon's texts are a few kilobytes; a lying length word must not
  // make us reserve gigabytes.
  static constexpr uint32_t kMaxLength = 16u * 1024 * 1024;
  // Zeroed bytes past the payload: a payload without its NUL still ends
  // inside the buffer.
  static constexpr size_t kSpareBytes = 20;

  struct FreeDeleter {
    void operator()(char* p) const noexcept { std::free(p); }
  };
  using Buffer = std::unique_ptr<char, FreeDeleter>;

  // Told about every read and every pass (counted from 1) that leaves the
  // payload incomplete.
  class Observer {
   public:
    virtual void Read(ssize_t rwresult) = 0;
    virtual void Incomplete(size_t received, int pass) = 0;
    virtual void Interrupted(size_t received, int pass) = 0;

   protected:
    ~Observer() = default;
  };

  enum class Result {
    kComplete,
    kEndOfFile,   // the first pass read nothing (when the caller asks for it)
    kFailed,      // a read failed, or a wait ran past the limit
    kIncomplete,  // still incomplete after the last pass
    kWoken,       // the wake descriptor was signalled
  };

  // waitMsec < 0: a wait lasts as long as it takes; wakeFd < 0: no wake-up.
  FrameReader(int fd, int waitMsec, int wakeFd) : m_Fd(fd), m_WaitMsec(waitMsec), m_WakeFd(wakeFd) {}

  // One read of the length word (its result in rwresult), completed when the
  // word arrives in pieces rather than taken in part. False when no whole
  // word came.
  bool ReadLength(uint32_t& length, ssize_t& rwresult);

  // Reads `length` bytes into `data`, `received` counting them. With
  // emptyFirstPassEnds, a first pass that reads nothing ends the frame.
  Result ReadPayload(char* data, uint32_t length, size_t& received, Observer& observer, bool emptyFirstPassEnds);

  static bool WithinCap(uint32_t length) { return length <= kMaxLength; }
  // length + kSpareBytes bytes, the spare ones zeroed; null for a length
  // over the cap and without memory.
  static Buffer Allocate(uint32_t length);

 private:
  enum class Wait { kReadable, kFailed, kWoken };
  Wait WaitForData() const;

  int m_Fd;
  int m_WaitMsec;
  int m_WakeFd;
};
