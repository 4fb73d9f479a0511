#include "html/StatusIcons.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Strict decoder: a character outside the alphabet or padding anywhere but
// at the end fails, so a damaged literal cannot slip through.
bool DecodeBase64(const std::string& text, std::vector<uint8_t>& out) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.size() % 4 != 0) return false;
  const size_t padding = text.size() - std::min(text.find_last_not_of('=') + 1, text.size());
  if (padding > 2) return false;
  uint32_t bits = 0;
  int pending = 0;
  for (size_t i = 0; i < text.size() - padding; ++i) {
    const size_t value = alphabet.find(text[i]);
    if (value == std::string::npos) return false;
    bits = (bits << 6) | static_cast<uint32_t>(value);
    if ((pending += 6) >= 8) out.push_back(static_cast<uint8_t>(bits >> (pending -= 8)));
  }
  return true;
}

uint32_t BigEndian32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | p[2] << 8 | p[3]; }

uint32_t Crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// Walks the chunk list into (type, data) pairs; false on a bad signature,
// truncation or CRC.
bool ParsePng(const std::vector<uint8_t>& png, std::vector<std::pair<std::string, std::vector<uint8_t>>>& chunks) {
  static const uint8_t signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (png.size() < 8 || std::memcmp(png.data(), signature, 8) != 0) return false;
  for (size_t pos = 8; pos < png.size();) {
    if (png.size() - pos < 12) return false;
    const uint32_t length = BigEndian32(&png[pos]);
    if (png.size() - pos - 12 < length) return false;
    const uint8_t* typeAndData = &png[pos + 4];
    if (BigEndian32(typeAndData + 4 + length) != Crc32(typeAndData, 4 + length)) return false;
    chunks.emplace_back(std::string(reinterpret_cast<const char*>(typeAndData), 4),
                        std::vector<uint8_t>(typeAndData + 4, typeAndData + 4 + length));
    pos += 12 + length;
  }
  return true;
}

}  // namespace

TEST(StatusIconsTest, EachIconIsAWellFormed16x16RgbaPngOfTheFixedLength) {
  const struct {
    const char* base64;
    size_t length;
  } icons[] = {{StatusIcons::kNormal, 724}, {StatusIcons::kWarning, 536},
               {StatusIcons::kError, 596},  {StatusIcons::kNotPresent, 1068}};
  for (const auto& icon : icons) {
    SCOPED_TRACE(icon.length);
    EXPECT_EQ(strlen(icon.base64), icon.length);
    std::vector<uint8_t> png;
    std::vector<std::pair<std::string, std::vector<uint8_t>>> chunks;
    ASSERT_TRUE(DecodeBase64(icon.base64, png));
    ASSERT_TRUE(ParsePng(png, chunks));
    ASSERT_GE(chunks.size(), 3u);
    EXPECT_EQ(chunks.front().first, "IHDR");
    EXPECT_EQ(chunks.front().second, (std::vector<uint8_t>{0, 0, 0, 16, 0, 0, 0, 16, 8, 6, 0, 0, 0}));  // 8-bit RGBA
    EXPECT_EQ(chunks.back(), std::make_pair(std::string("IEND"), std::vector<uint8_t>()));
    size_t imageBytes = 0;
    for (const auto& chunk : chunks) imageBytes += chunk.first == "IDAT" ? chunk.second.size() : 0;
    EXPECT_GT(imageBytes, 6u);  // a zlib header and the Adler-32 trailer at least
  }
  const std::string prefix =
      "iVBORw0KGgoAAAANSUhEUgAAABAAAAAQCAYAAAAf8/9hAAAAGXRFWHRTb2Z0d2FyZQBBZG9iZSBJbWFnZVJlYWR5ccllPAAA"
      "AcFJREFU";
  EXPECT_EQ(std::string(StatusIcons::kNormal).compare(0, prefix.size(), prefix), 0);
}
