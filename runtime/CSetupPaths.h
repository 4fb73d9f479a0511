#pragma once

#include <string>

class CSetupPaths {
 public:
  // Drops one trailing "/" unless the path is as short as "/", "//" or
  // "/a/" (root-like paths stay untouched).
  static void MakeValidDirPath(std::string& path);
};
