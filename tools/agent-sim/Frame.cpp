#include "Frame.h"

#include <cstring>

namespace agentsim {

std::string EncodeLength(uint32_t length) {
  std::string word(4, '\0');
  for (int i = 0; i < 4; ++i) word[i] = static_cast<char>((length >> (8 * i)) & 0xFF);
  return word;
}

std::string EncodeFrame(const std::string& text) {
  std::string frame = EncodeLength(static_cast<uint32_t>(text.size() + 1));
  frame += text;
  frame.push_back('\0');
  return frame;
}

FrameReader::Result FrameReader::Next(std::string& text) {
  if (buffer_.size() < 4) return Result::kNeedMore;
  uint32_t length = 0;
  for (int i = 0; i < 4; ++i) length |= uint32_t(static_cast<unsigned char>(buffer_[i])) << (8 * i);
  if (length > maxLength_) return Result::kTooLarge;
  if (buffer_.size() - 4 < length) return Result::kNeedMore;
  const char* payload = buffer_.data() + 4;
  const void* nul = std::memchr(payload, '\0', length);
  size_t textLength = nul ? static_cast<const char*>(nul) - payload : length;
  text.assign(payload, textLength);
  buffer_.erase(0, 4 + size_t(length));
  return Result::kFrame;
}

}  // namespace agentsim
