#pragma once

#include <string>

// The program's run: switches, output file, optional status reset, report.
class ZentrixApp {
 public:
  // 0 after the help text or a written report, -1 when the file cannot be
  // written.
  int run(int argc, char** argv);

  void showHelp();
  // "Zentrix_<YYYYmmddHHMMSS>.html", stamped at the first call and kept.
  std::string getOutputFilename();
  // Creates or empties the file (before any agent traffic, on purpose) and
  // tells whether that worked; errno stays as open() left it.
  bool isFileWritable(std::string path);

 private:
  bool clearDriverMonitorStatus();

  std::string m_outputFilename;
};
