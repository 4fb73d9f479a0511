#include "sysinfo/CIPAddress.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

CIPAddress::CIPAddress(const std::vector<unsigned char>& bytes) : bytes_(bytes) {
  if (bytes_.size() == 4) {
    char text[16];
    snprintf(text, sizeof(text), "%u.%u.%u.%u", bytes_[0], bytes_[1], bytes_[2], bytes_[3]);
    text_ = text;
  } else if (bytes_.size() == 16) {
    unsigned char raw[16];
    std::memcpy(raw, bytes_.data(), sizeof(raw));
    char text[62];
    if (inet_ntop(AF_INET6, raw, text, sizeof(text)) != nullptr) {
      text_ = text;
    } else {
      text_ = handBuiltIPv6Text(raw);
    }
  }
}

std::string CIPAddress::handBuiltIPv6Text(const unsigned char (&bytes)[16]) {
  std::string text;
  char part[8];
  for (int i = 0; i < 16; ++i) {
    const unsigned b = bytes[i];
    if (i % 2 == 0) {
      if (b != 0) {
        snprintf(part, sizeof(part), i == 0 ? "%x" : ":%x", b);
      } else {
        snprintf(part, sizeof(part), "%s", i == 0 ? "" : ":");
      }
    } else {
      snprintf(part, sizeof(part), (b == 0 || bytes[i - 1] == 0) ? "%x" : "%02x", b);
    }
    text += part;
  }
  if (text == "0:0:0:0:0:0:0:0") return "::";
  if (text == "0:0:0:0:0:0:0:1") return "::1";
  return text;
}
