#include "runtime/CStringMapper.h"

std::string CStringMapper::StringToUTF8(const char* text) {
  return text ? std::string(text) : std::string();
}

bool CStringMapper::UTF8ToString(std::string& out, const char* utf8) {
  if (!utf8) return false;
  out.assign(utf8);
  return true;
}
