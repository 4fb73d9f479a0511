#include "runtime/CSetupPaths.h"

void CSetupPaths::MakeValidDirPath(std::string& path) {
  if (path.empty()) return;
  size_t lastSlash = path.rfind('/');
  if (lastSlash == path.size() - 1 && lastSlash >= 3) path.erase(lastSlash);
}
