#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

// A byte block as the agent delivers it, consumed from the front. A read is
// bounded by what is left: a short one returns false and moves nothing.
// Numbers are little-endian, as the agent sends them.
class CDataStream {
 public:
  CDataStream() = default;
  explicit CDataStream(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}

  // Replaces the content and starts reading from its front again.
  void assign(std::vector<unsigned char> bytes);

  const std::vector<unsigned char>& bytes() const { return bytes_; }
  size_t size() const { return bytes_.size(); }
  size_t position() const { return pos_; }
  size_t bytesLeft() const { return bytes_.size() - pos_; }
  bool empty() const { return bytesLeft() == 0; }
  // The unread bytes (nullptr when none are left).
  const unsigned char* data() const { return empty() ? nullptr : bytes_.data() + pos_; }

  bool skip(size_t count);
  bool readUInt32(uint32_t& value);

 private:
  std::vector<unsigned char> bytes_;
  size_t pos_ = 0;
};
