#include "sysinfo/CIPAddress.h"

#include <gtest/gtest.h>

TEST(CIPAddressTest, HandBuiltIPv6TextKeepsItsOwnSpelling) {
  // No compression of zero runs; a low byte is padded only when both bytes
  // of its group are non-zero, so 0x0100 reads "10".
  const struct { unsigned char bytes[16]; const char* text; } cases[] = {
      {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
      {{0xfe, 0x80, 0, 0, 0x01, 0x00, 0, 0x05, 0x12, 0x03, 0xab, 0xcd, 0, 0, 0, 0x01}, "fe80:0:10:5:1203:abcd:0:1"},
      {{}, "::"}, {{0, 0x20}, "20:0:0:0:0:0:0:0"},
  };
  for (const auto& c : cases) EXPECT_EQ(CIPAddress::handBuiltIPv6Text(c.bytes), c.text);
}
