#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The agent's frame: a 4-byte little-endian length counting the text plus
// one trailing NUL, then the text, then the NUL. Written here from scratch so
// the simulator cannot inherit a framing mistake from the client.
namespace agentsim {

std::string EncodeLength(uint32_t length);
// Length word + text + NUL.
std::string EncodeFrame(const std::string& text);

// Collects bytes from a stream socket and cuts them into frames.
class FrameReader {
 public:
  enum class Result { kNeedMore, kFrame, kTooLarge };

  explicit FrameReader(uint32_t maxLength = 16u << 20) : maxLength_(maxLength) {}

  void Append(const char* data, size_t size) { buffer_.append(data, size); }
  // On kFrame, `text` is the payload up to its first NUL (a peer that sends
  // no NUL gets its whole payload). kTooLarge means the stream cannot be
  // trusted any more and the connection should be dropped.
  Result Next(std::string& text);
  size_t Buffered() const { return buffer_.size(); }

 private:
  uint32_t maxLength_;
  std::string buffer_;
};

}  // namespace agentsim
