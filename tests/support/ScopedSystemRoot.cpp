#include "tests/support/ScopedSystemRoot.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "runtime/CSystemRoot.h"

namespace fs = std::filesystem;

ScopedSystemRoot::ScopedSystemRoot() {
  // Short and fixed on purpose: socket paths below it must fit into sockaddr_un.
  std::string pattern = "/tmp/zxroot-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = pattern;
  env_.set(CSystemRoot::kEnvironmentVariable, root_);
}

ScopedSystemRoot::~ScopedSystemRoot() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string ScopedSystemRoot::makeDirs(const std::string& absoluteDir) const {
  std::string full = root_ + absoluteDir;
  fs::create_directories(full);
  return full;
}

std::string ScopedSystemRoot::writeFile(const std::string& absolutePath, const std::string& content) const {
  std::string full = root_ + absolutePath;
  fs::create_directories(fs::path(full).parent_path());
  std::ofstream(full, std::ios::binary | std::ios::trunc) << content;
  return full;
}

std::string ScopedSystemRoot::readFile(const std::string& fullPath) {
  std::ifstream in(fullPath, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}
