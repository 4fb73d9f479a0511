#include "sysinfo/CDataStream.h"

#include "runtime/LittleEndian.h"

void CDataStream::assign(std::vector<unsigned char> bytes) {
  bytes_ = std::move(bytes);
  pos_ = 0;
}

bool CDataStream::skip(size_t count) {
  if (count > bytesLeft()) return false;
  pos_ += count;
  return true;
}

bool CDataStream::readUInt32(uint32_t& value) {
  if (!LittleEndian::Read32(bytes_.data(), bytes_.size(), pos_, value)) return false;
  pos_ += sizeof value;
  return true;
}
