#include "sysinfo/CDataStream.h"

#include <gtest/gtest.h>

namespace {

TEST(CDataStreamTest, NumbersAreLittleEndianAndShortReadsMoveNothing) {
  CDataStream s({0x34, 0x12, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x02, 0x03});
  uint16_t w = 0;
  int32_t i = 0;
  ASSERT_TRUE(s.readUInt16(w) && s.readInt32(i));
  EXPECT_EQ(w, 0x1234);
  EXPECT_EQ(i, -1);

  uint32_t d = 77;
  unsigned char buf[4] = {9, 9, 9, 9};
  EXPECT_FALSE(s.readUInt32(d) || s.read(buf, 4) || s.skip(4));
  EXPECT_EQ(d, 77u);
  EXPECT_EQ(buf[0], 9);
  EXPECT_EQ(s.position(), 6u);

  ASSERT_TRUE(s.peek(buf, 3) && s.bytesLeft() == 3u);
  ASSERT_TRUE(s.read(buf, 3));
  EXPECT_EQ(buf[2], 0x03);
  EXPECT_EQ(s.data(), nullptr);
  EXPECT_FALSE(s.readUInt8(buf[0]));
}

TEST(CDataStreamTest, TextStopsAtNulOrTheEndOfTheWindow) {
  const char raw[] = "abc\0de";  // no NUL after "de" in the block
  CDataStream s(std::vector<unsigned char>(raw, raw + 6));
  std::string text;
  ASSERT_TRUE(s.readCString(text));
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(s.position(), 4u);
  ASSERT_TRUE(s.readCString(text));
  EXPECT_EQ(text, "de");
  EXPECT_FALSE(s.readCString(text));

  ASSERT_TRUE(s.seek(0));
  ASSERT_TRUE(s.readCString(text, 2));
  EXPECT_EQ(text, "ab");
  EXPECT_EQ(s.position(), 2u);
  EXPECT_FALSE(s.seek(7));
  EXPECT_TRUE(s.seek(6));
  s.assign({7, 8});  // starts again at the front
  ASSERT_NE(s.data(), nullptr);
  EXPECT_EQ(*s.data(), 7);
}

}  // namespace
