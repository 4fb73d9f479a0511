#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A byte block as the agent delivers it, consumed from the front. Every read
// is bounded by what is left: a short read returns false and moves nothing.
// Multi-byte numbers are little-endian, as the agent sends them.
class CDataStream {
 public:
  CDataStream() = default;
  explicit CDataStream(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}

  // Replaces the content and starts reading from its front again.
  void assign(std::vector<unsigned char> bytes);
  void clear();

  const std::vector<unsigned char>& bytes() const { return bytes_; }
  size_t size() const { return bytes_.size(); }
  size_t position() const { return pos_; }
  size_t bytesLeft() const { return bytes_.size() - pos_; }
  bool empty() const { return bytesLeft() == 0; }
  // The unread bytes (nullptr when none are left).
  const unsigned char* data() const { return empty() ? nullptr : bytes_.data() + pos_; }

  bool read(void* out, size_t count);
  bool peek(void* out, size_t count) const;
  bool skip(size_t count);
  bool seek(size_t position);

  bool readUInt8(uint8_t& value) { return read(&value, 1); }
  bool readUInt16(uint16_t& value);
  bool readUInt32(uint32_t& value);
  bool readInt32(int32_t& value);
  // Text up to a NUL within the next maxLength bytes (at most what is left).
  // The NUL is consumed; without one the rest of that window is the text.
  bool readCString(std::string& text, size_t maxLength = SIZE_MAX);

 private:
  bool readLittleEndian(uint64_t& value, size_t width);

  std::vector<unsigned char> bytes_;
  size_t pos_ = 0;
};
