#include "runtime/CDirectoryList.h"

#include <cstdlib>
#include <cstring>

int CDirectoryList::SelectFilesInDir(const dirent* entry) {
  return entry != nullptr && strstr(entry->d_name, ".ini") != nullptr ? 1 : 0;
}

bool CDirectoryList::ListIniFiles(const char* directory, std::vector<std::string>& names) {
  names.clear();
  dirent** list = nullptr;
  int count = scandir(directory, &list, SelectFilesInDir, alphasort);
  if (count < 0) return false;
  for (int i = 0; i < count; ++i) {
    names.emplace_back(list[i]->d_name);
    free(list[i]);
  }
  free(list);
  return true;
}
