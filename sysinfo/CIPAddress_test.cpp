#include "sysinfo/CIPAddress.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;

TEST(CIPAddressTest, TextFollowsTheBlockLength) {
  EXPECT_EQ(CIPAddress(Bytes{192, 168, 1, 10}).text(), "192.168.1.10");
  EXPECT_EQ(CIPAddress(Bytes{255, 255, 255, 255}).text(), "255.255.255.255");
  EXPECT_EQ(CIPAddress(Bytes{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x1a, 0x2b, 0xff, 0xfe, 0x3c, 0x4d, 0x5e})
                .text(),
            "fe80::21a:2bff:fe3c:4d5e");
  EXPECT_EQ(CIPAddress(Bytes(16, 0)).text(), "::");
  EXPECT_EQ(CIPAddress(Bytes{1, 2, 3, 4, 5, 6}).text(), "");
  EXPECT_EQ(CIPAddress(Bytes{}).text(), "");
  EXPECT_EQ(CIPAddress(Bytes{1, 2, 3}).text(), "");
  EXPECT_EQ(CIPAddress(Bytes{1, 2, 3}).bytes(), (Bytes{1, 2, 3}));
}

TEST(CIPAddressTest, HandBuiltIPv6TextKeepsItsOwnSpelling) {
  const unsigned char zero[16] = {};
  EXPECT_EQ(CIPAddress::handBuiltIPv6Text(zero), "::");
  const unsigned char loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  EXPECT_EQ(CIPAddress::handBuiltIPv6Text(loopback), "::1");
  // No compression of zero runs; a low byte is padded only when both bytes
  // of its group are non-zero; 0x0100 reads "10".
  const unsigned char mixed[16] = {0xfe, 0x80, 0, 0, 0x01, 0x00, 0, 0x05,
                                   0x12, 0x03, 0xab, 0xcd, 0, 0, 0, 0x01};
  EXPECT_EQ(CIPAddress::handBuiltIPv6Text(mixed), "fe80:0:10:5:1203:abcd:0:1");
  const unsigned char leadingZero[16] = {0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(CIPAddress::handBuiltIPv6Text(leadingZero), "20:0:0:0:0:0:0:0");
}

}  // namespace
