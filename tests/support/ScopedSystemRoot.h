#pragma once

#include <string>

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
  // root() + absolutePath, with parent directories created.
  std::string makeDirs(const std::string& absoluteDir) const;
  // Writes a file below the root (parents created); returns its full path.
  std::string writeFile(const std::string& absolutePath, const std::string& content) const;
  static std::string readFile(const std::string& fullPath);

 private:
  std::string root_;
  bool hadOld_ = false;
  std::string old_;
};
