#pragma once

#include <dirent.h>

#include <string>
#include <vector>

// Lists the trace configuration files of a directory.
class CDirectoryList {
 public:
  // scandir filter: every entry whose name contains ".ini" anywhere, so a
  // backup such as "x.ini.bak" is listed too.
  static int SelectFilesInDir(const dirent* entry);

  // Names accepted by SelectFilesInDir, sorted alphabetically (alphasort).
  // False when the directory cannot be listed.
  static bool ListIniFiles(const char* directory, std::vector<std::string>& names);
};
