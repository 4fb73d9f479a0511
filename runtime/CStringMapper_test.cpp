#include "runtime/CStringMapper.h"

#include <gtest/gtest.h>

#include <string>

TEST(CStringMapperTest, ConversionsCopyTextAndHandleNullAndEmpty) {
  EXPECT_EQ("Gr\xC3\xBC\xC3\x9F" "e", CStringMapper::StringToUTF8("Gr\xC3\xBC\xC3\x9F" "e"));
  EXPECT_EQ("", CStringMapper::StringToUTF8(nullptr));
  std::string out = "previous";
  EXPECT_FALSE(CStringMapper::UTF8ToString(out, nullptr));
  EXPECT_EQ("previous", out);
  EXPECT_TRUE(CStringMapper::UTF8ToString(out, ""));
  EXPECT_EQ("", out);
}
