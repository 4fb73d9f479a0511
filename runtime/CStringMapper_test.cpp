#include "runtime/CStringMapper.h"

#include <gtest/gtest.h>

#include <string>

// Texts are copied as they are, which the codec's tests show; no caller
// passes a null text, but one must neither crash nor touch the output.
TEST(CStringMapperTest, NullGivesNothingAndLeavesTheOutput) {
  EXPECT_EQ("", CStringMapper::StringToUTF8(nullptr));
  std::string out = "previous";
  EXPECT_FALSE(CStringMapper::UTF8ToString(out, nullptr));
  EXPECT_EQ("previous", out);
}
