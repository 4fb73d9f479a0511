#include "sysinfo/CDataStream.h"

#include <algorithm>
#include <cstring>

void CDataStream::assign(std::vector<unsigned char> bytes) {
  bytes_ = std::move(bytes);
  pos_ = 0;
}

void CDataStream::clear() { assign({}); }

bool CDataStream::peek(void* out, size_t count) const {
  if (count > bytesLeft()) return false;
  if (count > 0) std::memcpy(out, bytes_.data() + pos_, count);
  return true;
}

bool CDataStream::read(void* out, size_t count) {
  if (!peek(out, count)) return false;
  pos_ += count;
  return true;
}

bool CDataStream::skip(size_t count) {
  if (count > bytesLeft()) return false;
  pos_ += count;
  return true;
}

bool CDataStream::seek(size_t position) {
  if (position > bytes_.size()) return false;
  pos_ = position;
  return true;
}

bool CDataStream::readLittleEndian(uint64_t& value, size_t width) {
  if (width > bytesLeft()) return false;
  value = 0;
  for (size_t i = 0; i < width; ++i) value |= uint64_t{bytes_[pos_ + i]} << (8 * i);
  pos_ += width;
  return true;
}

bool CDataStream::readUInt16(uint16_t& value) {
  uint64_t v;
  if (!readLittleEndian(v, 2)) return false;
  value = static_cast<uint16_t>(v);
  return true;
}

bool CDataStream::readUInt32(uint32_t& value) {
  uint64_t v;
  if (!readLittleEndian(v, 4)) return false;
  value = static_cast<uint32_t>(v);
  return true;
}

bool CDataStream::readInt32(int32_t& value) {
  uint32_t v;
  if (!readUInt32(v)) return false;
  value = static_cast<int32_t>(v);
  return true;
}

bool CDataStream::readCString(std::string& text, size_t maxLength) {
  if (empty()) return false;
  const size_t window = std::min(maxLength, bytesLeft());
  const unsigned char* begin = bytes_.data() + pos_;
  const unsigned char* end = begin + window;
  const unsigned char* nul = std::find(begin, end, 0);
  text.assign(begin, nul);
  pos_ += static_cast<size_t>(nul - begin) + (nul != end ? 1 : 0);
  return true;
}
