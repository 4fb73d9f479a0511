#pragma once

#include <string>

// Conversion between the local character set and the UTF-8 of the agent
// protocol. The tool runs in UTF-8 locales only, so both directions copy.
class CStringMapper {
 public:
  // A copy of text; a null text gives an empty string.
  static std::string StringToUTF8(const char* text);
  // False (out untouched) when utf8 is null; otherwise out = utf8 and true.
  static bool UTF8ToString(std::string& out, const char* utf8);
};
