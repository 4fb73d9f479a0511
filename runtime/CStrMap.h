#pragma once

// Ordering of registry entry names: case-sensitive strcmp, with a null name
// sorting before every other name (and equal to another null).
class CStrMap {
 public:
  // <0, 0 or >0 like strcmp.
  static int compare(const char* left, const char* right);
  // Strict weak order for sorted containers and binary searches.
  static bool less(const char* left, const char* right) { return compare(left, right) < 0; }
};
