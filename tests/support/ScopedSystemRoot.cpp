#include "tests/support/ScopedSystemRoot.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <filesystem>

#include "runtime/CSystemRoot.h"

namespace fs = std::filesystem;

ScopedSystemRoot::ScopedSystemRoot() {
  const char* old = std::getenv(CSystemRoot::kEnvironmentVariable);
  hadOld_ = old != nullptr;
  if (hadOld_) old_ = old;
  std::string pattern = (fs::temp_directory_path() / "zentrix-root-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = pattern;
  setenv(CSystemRoot::kEnvironmentVariable, root_.c_str(), 1);
}

ScopedSystemRoot::~ScopedSystemRoot() {
  if (hadOld_) setenv(CSystemRoot::kEnvironmentVariable, old_.c_str(), 1);
  else unsetenv(CSystemRoot::kEnvironmentVariable);
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
  std::ofstream out(full, std::ios::binary | std::ios::trunc);
  out << content;
  return full;
}

std::string ScopedSystemRoot::readFile(const std::string& fullPath) {
  std::ifstream in(fullPath, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}
