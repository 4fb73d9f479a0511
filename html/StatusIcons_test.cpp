#include "html/StatusIcons.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

// Strict decoder: "" when a character is outside the alphabet or padding is
// misplaced, so a damaged literal cannot slip through.
std::string DecodeBase64(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t end = text.find_last_not_of('=') + 1;
  if (text.size() % 4 != 0 || text.size() - end > 2) return "";
  std::string out;
  uint32_t bits = 0;
  int pending = 0;
  for (size_t i = 0; i < end; ++i) {
    const size_t value = alphabet.find(text[i]);
    if (value == std::string::npos) return "";
    bits = bits << 6 | static_cast<uint32_t>(value);
    if ((pending += 6) >= 8) out += static_cast<char>(bits >> (pending -= 8));
  }
  return out;
}

uint32_t BigEndian32(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = at; i < at + 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[i]);
  return value;
}

uint32_t Crc32(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFFu;
  for (char byte : bytes) {
    crc ^= static_cast<uint8_t>(byte);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

using Chunk = std::pair<std::string, std::string>;  // type, data

// The chunks of a PNG file; none on a bad signature, truncation or CRC.
std::vector<Chunk> ParsePng(const std::string& png) {
  if (png.compare(0, 8, "\x89PNG\r\n\x1A\n") != 0) return {};
  std::vector<Chunk> chunks;
  for (size_t pos = 8; pos < png.size(); pos += 12 + chunks.back().second.size()) {
    if (png.size() - pos < 12 || png.size() - pos - 12 < BigEndian32(png, pos)) return {};
    const uint32_t length = BigEndian32(png, pos);
    if (BigEndian32(png, pos + 8 + length) != Crc32(png.substr(pos + 4, 4 + length))) return {};
    chunks.emplace_back(png.substr(pos + 4, 4), png.substr(pos + 8, length));
  }
  return chunks;
}

}  // namespace

TEST(StatusIconsTest, EachIconIsAWellFormed16x16RgbaPngOfTheFixedLength) {
  const std::pair<const char*, size_t> icons[] = {{StatusIcons::kNormal, 724}, {StatusIcons::kWarning, 536},
                                                  {StatusIcons::kError, 596},  {StatusIcons::kNotPresent, 1068}};
  for (const auto& [base64, length] : icons) {
    SCOPED_TRACE(length);
    EXPECT_EQ(strlen(base64), length);
    const std::vector<Chunk> chunks = ParsePng(DecodeBase64(base64));
    ASSERT_GE(chunks.size(), 3u);
    EXPECT_EQ(chunks.front(), Chunk("IHDR", std::string("\0\0\0\x10\0\0\0\x10\x08\x06\0\0\0", 13)));  // 8-bit RGBA
    EXPECT_EQ(chunks.back(), Chunk("IEND", ""));
    size_t imageBytes = 0;
    for (const auto& [type, data] : chunks) imageBytes += type == "IDAT" ? data.size() : 0;
    EXPECT_GT(imageBytes, 6u);  // a zlib header and the Adler-32 trailer at least
  }
  const std::string prefix =
      "iVBORw0KGgoAAAANSUhEUgAAABAAAAAQCAYAAAAf8/9hAAAAGXRFWHRTb2Z0d2FyZQBBZG9iZSBJbWFnZVJlYWR5ccllPAAA"
      "AcFJREFU";
  EXPECT_EQ(std::string(StatusIcons::kNormal).compare(0, prefix.size(), prefix), 0);
}
