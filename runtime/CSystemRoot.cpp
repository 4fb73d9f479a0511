#include "runtime/CSystemRoot.h"

#include <cstdlib>

std::string CSystemRoot::Prefix() {
  // Read on every call: tests change the variable between cases.
  const char* root = std::getenv(kEnvironmentVariable);
  if (root == nullptr) return std::string();
  std::string prefix(root);
  while (prefix.size() > 1 && prefix.back() == '/') prefix.pop_back();
  return prefix == "/" ? std::string() : prefix;
}

std::string CSystemRoot::Path(const char* absolutePath) {
  std::string path = absolutePath != nullptr ? absolutePath : "";
  return Prefix() + path;
}
