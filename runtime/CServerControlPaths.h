#pragma once

#include <string>

// Directories of the suite's installation, found through the registry store.
class CServerControlPaths {
 public:
  static constexpr const char* kServerControlValue = "Server Control";
  static constexpr const char* kDefaultProductKey = "SOFTWARE\\Tarnwell\\Management\\Server Control";

  // The program directory: "BinRoot", else "FileRoot" of the product's Setup
  // key, else the current directory; without a trailing "/". True when a
  // registry value was used.
  static bool GetServerControlBinPath(std::string& out);

 private:
  static std::string ProductKey();
  static bool ReadSetupValue(const char* valueName, std::string& out);
};
