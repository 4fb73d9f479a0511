#include "runtime/CStrMap.h"

#include <cstring>

int CStrMap::compare(const char* left, const char* right) {
  if (left == nullptr || right == nullptr) {
    if (left == right) return 0;
    return left == nullptr ? -1 : 1;
  }
  return std::strcmp(left, right);
}
