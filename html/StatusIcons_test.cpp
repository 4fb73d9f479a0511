#include "html/StatusIcons.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Strict decoder: any character outside the alphabet or misplaced padding
// fails, so a damaged literal cannot slip through.
bool DecodeBase64(const std::string& text, std::vector<uint8_t>& out) {
  static const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.size() % 4 != 0) return false;
  out.clear();
  for (size_t i = 0; i < text.size(); i += 4) {
    uint32_t group = 0;
    int padding = 0;
    for (size_t j = 0; j < 4; ++j) {
      char c = text[i + j];
      if (c == '=' && i + 4 == text.size() && j >= 2) {
        ++padding;
        group <<= 6;
        continue;
      }
      size_t value = alphabet.find(c);
      if (value == std::string::npos || padding) return false;
      group = (group << 6) | static_cast<uint32_t>(value);
    }
    out.push_back(static_cast<uint8_t>(group >> 16));
    if (padding < 2) out.push_back(static_cast<uint8_t>(group >> 8));
    if (padding < 1) out.push_back(static_cast<uint8_t>(group));
  }
  return true;
}

uint32_t BigEndian32(const uint8_t* p) {
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

uint32_t Crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

struct Chunk {
  std::string type;
  std::vector<uint8_t> data;
};

// Walks the chunk list; false on a bad signature, truncation or CRC.
bool ParsePng(const std::vector<uint8_t>& png, std::vector<Chunk>& chunks) {
  static const uint8_t signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (png.size() < 8 || std::memcmp(png.data(), signature, 8) != 0) return false;
  size_t pos = 8;
  while (pos < png.size()) {
    if (png.size() - pos < 12) return false;
    uint32_t length = BigEndian32(&png[pos]);
    if (png.size() - pos - 12 < length) return false;
    const uint8_t* typeAndData = &png[pos + 4];
    if (BigEndian32(typeAndData + 4 + length) != Crc32(typeAndData, 4 + length)) return false;
    chunks.push_back({std::string(reinterpret_cast<const char*>(typeAndData), 4),
                      std::vector<uint8_t>(typeAndData + 4, typeAndData + 4 + length)});
    pos += 12 + length;
  }
  return true;
}

}  // namespace

TEST(StatusIconsTest, EachIconIsAWellFormed16x16RgbaPngOfTheFixedLength) {
  const struct {
    const char* name;
    const char* base64;
    size_t length;
  } icons[] = {{"normal", StatusIcons::kNormal, 724},
               {"warning", StatusIcons::kWarning, 536},
               {"error", StatusIcons::kError, 596},
               {"not present", StatusIcons::kNotPresent, 1068}};
  for (const auto& icon : icons) {
    SCOPED_TRACE(icon.name);
    const std::string text = icon.base64;
    EXPECT_EQ(text.size(), icon.length);
    std::vector<uint8_t> png;
    ASSERT_TRUE(DecodeBase64(text, png));
    std::vector<Chunk> chunks;
    ASSERT_TRUE(ParsePng(png, chunks));
    ASSERT_GE(chunks.size(), 3u);
    EXPECT_EQ(chunks.front().type, "IHDR");
    const uint8_t ihdr[13] = {0, 0, 0, 16, 0, 0, 0, 16, 8, 6, 0, 0, 0};  // 8-bit RGBA
    ASSERT_EQ(chunks.front().data.size(), sizeof ihdr);
    EXPECT_EQ(std::memcmp(chunks.front().data.data(), ihdr, sizeof ihdr), 0);
    EXPECT_EQ(chunks.back().type, "IEND");
    EXPECT_TRUE(chunks.back().data.empty());
    size_t imageBytes = 0;
    for (const Chunk& c : chunks) {
      if (c.type == "IDAT") imageBytes += c.data.size();
    }
    // A zlib stream: header bytes and room for the Adler-32 trailer.
    ASSERT_GT(imageBytes, 6u);
  }
}

TEST(StatusIconsTest, NormalIconKeepsItsEstablishedDataPrefix) {
  const std::string prefix =
      "iVBORw0KGgoAAAANSUhEUgAAABAAAAAQCAYAAAAf8/9hAAAAGXRFWHRTb2Z0d2FyZQBBZG9iZSBJbWFnZVJlYWR5ccllPAAA"
      "AcFJREFU";
  EXPECT_EQ(std::string(StatusIcons::kNormal).compare(0, prefix.size(), prefix), 0);
}
