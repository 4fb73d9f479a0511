#pragma once

#include <string>
#include <vector>

// One management address as the agent delivers it (4 bytes IPv4, 16 bytes
// IPv6) together with its printable text; any other length has empty text.
class CIPAddress {
 public:
  explicit CIPAddress(const std::vector<unsigned char>& bytes);

  const std::vector<unsigned char>& bytes() const { return bytes_; }
  const std::string& text() const { return text_; }

  // The text built by hand when the system cannot print an IPv6 address.
  // It writes each low byte by itself, so a group 0x0100 reads "10".
  static std::string handBuiltIPv6Text(const unsigned char (&bytes)[16]);

 private:
  std::vector<unsigned char> bytes_;
  std::string text_;
};
