#include "sysinfo/CDataStream.h"

#include <gtest/gtest.h>

namespace {

TEST(CDataStreamTest, NumbersAreLittleEndianAndShortReadsMoveNothing) {
  CDataStream s({0xAA, 0x78, 0x56, 0x34, 0x12, 0x01, 0x02, 0x03, 0x84});
  uint32_t d = 0;
  ASSERT_TRUE(s.skip(1) && s.readUInt32(d));
  EXPECT_EQ(d, 0x12345678u);
  ASSERT_TRUE(s.readUInt32(d));  // the block's last four bytes
  EXPECT_EQ(d, 0x84030201u);
  EXPECT_FALSE(s.readUInt32(d) || s.skip(1));
  EXPECT_EQ(d, 0x84030201u);
  EXPECT_EQ(s.position(), 9u);
  EXPECT_EQ(s.data(), nullptr);
  s.assign({7, 8});  // starts again at the front
  ASSERT_NE(s.data(), nullptr);
  EXPECT_EQ(*s.data(), 7);
}

}  // namespace
