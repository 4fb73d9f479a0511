#pragma once

#include <string>

#include "tests/support/ScopedEnv.h"

// A fresh temporary directory installed as ZENTRIX_ROOT for the lifetime of
// the object; the previous value is restored and the directory removed on
// destruction.
class ScopedSystemRoot {
 public:
  ScopedSystemRoot();
  ~ScopedSystemRoot();
  ScopedSystemRoot(const ScopedSystemRoot&) = delete;
  ScopedSystemRoot& operator=(const ScopedSystemRoot&) = delete;

  const std::string& root() const { return root_; }
  // root() + absolutePath.
  std::string path(const std::string& absolutePath) const { return root_ + absolutePath; }
  // root() + absoluteDir, with parent directories created.
  std::string makeDirs(const std::string& absoluteDir) const;
  // Writes a file below the root (parents created); returns its full path.
  std::string writeFile(const std::string& absolutePath, const std::string& content) const;
  static std::string readFile(const std::string& fullPath);

 private:
  std::string root_;
  ScopedEnv env_;
};
