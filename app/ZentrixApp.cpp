#include "app/ZentrixApp.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>

#include "app/CCmdLineT.h"
#include "pages/Zentrix.h"
#include "runtime/CDebug.h"
#include "runtime/LocalTime.h"
#include "sysinfo/SystemInformation.h"

namespace {

void PrintWriteFailure(const std::string& path) {
  printf("\n!! Failed to write HTML file \"%s\"! (Error %s)\n", path.c_str(), strerror(errno));
}

}  // namespace

void ZentrixApp::showHelp() {
  printf("\nSyntax:");
  printf("\nZentrix");
  printf("\nZentrix           generates HTML output file Zentrix_<timestamp>.html");
  putchar('\n');
  printf("\n   -output [file name]   generates HTML output file [file name]");
  printf("\n   -clearstatus          clears Driver Monitor status and generates HTML output file "
         "Zentrix_<timestamp>.html");
  // One blank more than the other lines; kept as users know it.
  printf("\n   -autostart             starts default browser after generating the HTML report");
  printf("\n   -?                    shows this help");
  putchar('\n');
}

std::string ZentrixApp::getOutputFilename() {
  if (m_outputFilename.empty()) {
    char stamp[100];
    size_t length = FormatLocalTime(stamp, sizeof stamp, "%Y%m%d%H%M%S", time(nullptr));
    m_outputFilename = "Zentrix_" + std::string(stamp, length) + ".html";
  }
  return m_outputFilename;
}

bool ZentrixApp::isFileWritable(std::string path) {
  if (path.empty()) return true;
  char buffer[260];
  strncpy(buffer, path.c_str(), sizeof buffer - 1);
  buffer[sizeof buffer - 1] = '\0';
  errno = 0;
  int fd = open(buffer, O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  flock(fd, LOCK_EX);
  fsync(fd);
  flock(fd, LOCK_UN);
  close(fd);
  return true;
}

bool ZentrixApp::clearDriverMonitorStatus() {
  // A client of its own, attached for this one request and detached on
  // return; an unreachable agent ends the process inside the constructor.
  SystemInformation systemInformation;
  return systemInformation.clearDriverMonitorStatus();
}

int ZentrixApp::run(int argc, char** argv) {
  CCmdLineT<std::string> cmdLine("-", true);
  if (argc != 1 && cmdLine.SplitLine(argc, argv, true) == 0) {
    showHelp();
    return 0;
  }
  const auto none = cmdLine.end();
  const bool help = cmdLine.GetSwitch("?") != none;
  const auto output = cmdLine.GetSwitch("output");
  const bool clearStatus = cmdLine.GetSwitch("clearstatus") != none;
  const bool autostart = cmdLine.GetSwitch("autostart") != none;

  // Every token must be accounted for; anything else gets the help text.
  int recognised = (output != none ? 2 : 0) + (clearStatus ? 1 : 0) + (autostart ? 1 : 0);
  if (help || recognised + 1 != argc) {
    showHelp();
    return 0;
  }

  std::string path = getOutputFilename();
  if (output != none && !output->second.m_strings.empty()) path = output->second.m_strings.front();

  if (!path.empty() && !isFileWritable(path)) {
    PrintWriteFailure(path);
    return -1;
  }

  if (clearStatus) {
    printf("\nClearing Driver Monitor status for all components...");
    printf(clearDriverMonitorStatus() ? "\nStatus clear success." : "\nStatus clear failed.");
  }

  printf("\nGenerating HTML report...");
  Zentrix document;
  std::string html;
  try {
    html = document.renderContent();
  } catch (const std::exception& error) {
    // A page builder gave up (an agent value it cannot represent, such as an
    // unknown event severity): no report rather than a half one, and a plain
    // message instead of an abort.
    printf("\n!! Failed to generate HTML report! (Error %s)\n", error.what());
    return -1;
  }

  if (!path.empty()) {
    FILE* file = fopen(path.c_str(), "w");
    if (file) {
      fputs(html.c_str(), file);
      fclose(file);
      printf("\nSuccessfuly write HTML file \"%s\"\n", path.c_str());
      if (autostart) {
        const std::string command = "xdg-open \"" + path + "\"";
        // Whether a browser could be started does not change the outcome.
        int ignored = system(command.c_str());
        (void)ignored;
      }
      return 0;
    }
    const int openError = errno;
    if (g_Debug.IsEnabled()) {
      g_Debug.Print(1, "\nCFile               : ERROR 0x%X! Failed to write text file \"%s\"", openError,
                    path.c_str());
    }
    errno = openError;  // the trace write must not change the reported error
  }
  PrintWriteFailure(path);
  return -1;
}
