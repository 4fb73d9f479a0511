#include "runtime/CStringMapper.h"

#include <gtest/gtest.h>

TEST(CStringMapperTest, ConversionsCopyTextAndHandleNullAndEmpty) {
  EXPECT_EQ(CStringMapper::StringToUTF8("Gr\xC3\xBC\xC3\x9F" "e"), "Gr\xC3\xBC\xC3\x9F" "e");
  EXPECT_EQ(CStringMapper::StringToUTF8(nullptr), "");
  EXPECT_EQ(CStringMapper::StringToUTF8(""), "");

  std::string out = "previous";
  EXPECT_FALSE(CStringMapper::UTF8ToString(out, nullptr));
  EXPECT_EQ(out, "previous");
  EXPECT_TRUE(CStringMapper::UTF8ToString(out, "caf\xC3\xA9"));
  EXPECT_EQ(out, "caf\xC3\xA9");
  EXPECT_TRUE(CStringMapper::UTF8ToString(out, ""));
  EXPECT_EQ(out, "");
}
