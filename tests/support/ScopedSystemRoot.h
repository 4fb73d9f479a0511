#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "runtime/CSystemRoot.h"
#include "tests/support/ScopedEnv.h"

// A fresh temporary directory installed as ZENTRIX_ROOT for the lifetime of
// the object; the previous value is restored and the directory removed on
// destruction.
class ScopedSystemRoot {
 public:
  // Short and fixed on purpose: socket paths below it must fit into sockaddr_un.
  ScopedSystemRoot() : root_(std::string("/tmp/zxroot-XXXXXX")) {
    if (mkdtemp(root_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    env_.set(CSystemRoot::kEnvironmentVariable, root_);
  }
  ~ScopedSystemRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  ScopedSystemRoot(const ScopedSystemRoot&) = delete;
  ScopedSystemRoot& operator=(const ScopedSystemRoot&) = delete;

  const std::string& root() const { return root_; }
  // root() + absolutePath.
  std::string path(const std::string& absolutePath) const { return root_ + absolutePath; }
  // root() + absoluteDir, with parent directories created.
  std::string makeDirs(const std::string& absoluteDir) const {
    std::filesystem::create_directories(path(absoluteDir));
    return path(absoluteDir);
  }
  // Writes a file below the root (parents created); returns its full path.
  std::string writeFile(const std::string& absolutePath, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(path(absolutePath)).parent_path());
    std::ofstream(path(absolutePath), std::ios::binary | std::ios::trunc) << content;
    return path(absolutePath);
  }
  static std::string readFile(const std::string& fullPath) {
    std::ostringstream text;
    text << std::ifstream(fullPath, std::ios::binary).rdbuf();
    return text.str();
  }

 private:
  std::string root_;
  ScopedEnv env_;
};
