// Whether the agent daemon is installed, running and accepting connections.
#include <errno.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/CSwitchClient.h"
#include "agent/JsonChannel.h"
#include "runtime/CDebug.h"
#include "runtime/CSystemRoot.h"
#include "runtime/ThreadId.h"

namespace {

constexpr int kReadyPasses = 600;
constexpr long kDefaultMaxWait = 1200;
constexpr long kCheckPeriod = 2;


bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// "/var/run/" + base name of the binary + ".pid", below the system root.
std::string PidFileOf(const char* binary) {
  const char* base = std::strrchr(binary, '/');
  base = base != nullptr ? base + 1 : binary;
  return CSystemRoot::Path(std::string(CSwitchClient::kPidDir) + base + ".pid");
}

long MaxWaitSeconds() {
  const char* value = std::getenv(CSwitchClient::kMaxWaitVariable);
  if (value == nullptr || value[0] == '\0') return kDefaultMaxWait;
  return std::strtol(value, nullptr, 10);
}

}  // namespace

bool CSwitchClient::IsServiceInstalled(const char* path) {
  const char* name = path != nullptr ? path : "";
  g_Debug.Print(5, "\nCSwitchClient::IsServiceInstalled: Check for service \"%s\" being installed...\n", name);
  if (PathExists(name)) {
    g_Debug.Print(5, "\nCSwitchClient::IsServiceInstalled:   service \"%s\" is installed\n", name);
    return true;
  }
  g_Debug.Print(1, "\nCSwitchClient::IsServiceInstalled:   service \"%s\" is NOT installed\n", name);
  return false;
}

bool CSwitchClient::IsServiceRunning(const char* path) {
  return path != nullptr && PathExists(PidFileOf(path));
}

bool CSwitchClient::TryOpenOmadSocket(const char* socketPath) {
  g_Debug.Print(3, "\nCSwitchClient::TryOpenOmadSocket: try to open socket \"%s\"...\n", socketPath);
  if (!PathExists(socketPath)) {
    const int err = errno;
    g_Debug.Print(3, "CSwitchClient::TryOpenOmadSocket: could not open socket\n");
    errno = err;
    return false;
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    const int err = errno;
    if (err == EACCES)
      g_Debug.Print(1, "TryOpenOmadSocket: permission denied when trying to create socket on %s - not root?\n",
                    socketPath);
    else
      g_Debug.Print(1, "TryOpenOmadSocket: create socket on %s failed (thrId=0x%08X): %s\n", socketPath, ThreadId(),
                    strerror(err));
    errno = err;
    return false;
  }
  if (!ConnectUnixSocket(fd, socketPath)) {
    const int err = errno;
    g_Debug.Print(1, "TryOpenOmadSocket: connect to socket on %s failed (thrId=0x%08X): %s\n", socketPath, ThreadId(),
                  strerror(err));
    close(fd);
    errno = err;
    return false;
  }
  close(fd);
  return true;
}

bool CSwitchClient::IsServiceReady(const char* daemonPath, const char* socketPath) {
  const char* daemon = daemonPath != nullptr ? daemonPath : "";
  const char* socketName = socketPath != nullptr ? socketPath : "";
  g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: Check for socket \"%s\" being available...\n", socketName);
  for (int pass = 1; pass <= kReadyPasses; ++pass) {
    if (TryOpenOmadSocket(socketName)) {
      g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: -> socket \"%s\" is available\n", socketName);
      return true;
    }
    const int err = errno;
    if (err == EACCES) {
      g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: -> permission denied - not root?\n");
      SetLastError(EACCES, "Permission denied on omad connect");
      return false;
    }
    sleep(1);
    g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: check for service \"%s\" is running...\n", daemon);
    if (!IsServiceRunning(daemon)) {
      // Deliberately no error code: a stopped daemon is not a fault.
      SetLastError(0, "NO ERROR");
      g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: -> service \"%s\" is NOT running - abort!\n", daemon);
      return false;
    }
    if (pass == kReadyPasses) {
      SetLastError(ETIMEDOUT, "Timeout during connect attempt to omad");
      g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: -> socket \"%s\" is not available: %s --> TIMEOUT\n",
                    socketName, strerror(err));
      return false;
    }
    g_Debug.Print(3, "\nCSwitchClient::IsServiceReady: -> socket \"%s\" is not available: %s --> retry...\n",
                  socketName, strerror(err));
  }
  return false;
}

bool CSwitchClient::WaitForServiceAvailable(int terminateFd) {
  const std::string daemon = CSystemRoot::Path(kDaemonPath);
  // Only the preferred binary counts here.
  if (!IsServiceInstalled(daemon.c_str())) {
    g_Debug.Print(1, "WaitForServiceAvailable: ## WARNING ##: omad service no longer available -> bail out\n");
    return false;
  }
  const long maxWait = MaxWaitSeconds();
  g_Debug.Print(2, "WaitForServiceAvailable: TerminateFD=%d, InternalMaxWaitTime=%d sec, Check-period=%d sec\n",
                terminateFd, static_cast<int>(maxWait), static_cast<int>(kCheckPeriod));
  if (maxWait < kCheckPeriod) {
    g_Debug.Print(1, "WaitForServiceAvailable: AccumulatedWaitTime=%d expired -> bail out\n",
                  static_cast<int>(kCheckPeriod));
    return false;
  }
  // select() cannot watch descriptors beyond FD_SETSIZE; such a caller just
  // loses the early wake-up.
  const bool watch = terminateFd >= 0 && terminateFd < FD_SETSIZE;
  const std::string requestSocket = CSystemRoot::Path(kRequestSocket);
  const std::string eventSocket = CSystemRoot::Path(kEventSocket);
  long accumulated = kCheckPeriod;
  for (;;) {
    fd_set readSet;
    FD_ZERO(&readSet);
    if (watch) FD_SET(terminateFd, &readSet);
    struct timeval tv = {kCheckPeriod, 0};
    const int rc = select(watch ? terminateFd + 1 : 0, &readSet, nullptr, nullptr, &tv);
    if (rc < 0 && errno != EINTR) {
      g_Debug.Print(1, "WaitForServiceAvailable: Something is FISHY here (AccumulatedWaitTime=%d) -> bail out\n",
                    static_cast<int>(accumulated));
      return false;
    }
    if (rc < 0) {
      g_Debug.Print(1, "WaitForServiceAvailable: select interrupted by EINTR --> ignoring\n");
      g_Debug.Print(1, "WaitForServiceAvailable: tv_sec=%d, tv_usec=%d (AccumulatedWaitTime=%d)\n",
                    static_cast<int>(tv.tv_sec), static_cast<int>(tv.tv_usec), static_cast<int>(accumulated));
    } else if (rc > 0) {
      if (watch && FD_ISSET(terminateFd, &readSet)) {
        g_Debug.Print(1, "WaitForServiceAvailable: terminate has been signaled (AccumulatedWaitTime=%d) -> bail out\n",
                      static_cast<int>(accumulated));
      } else {
        g_Debug.Print(1, "WaitForServiceAvailable: Something is FISHY here !!! (AccumulatedWaitTime=%d) -> bail out\n",
                      static_cast<int>(accumulated));
      }
      return false;
    }
    // The request socket must exist, the event socket must accept: both
    // are created by the daemon once it is ready for clients.
    if (IsServiceRunning(daemon.c_str()) && PathExists(requestSocket)) {
      const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (fd >= 0) {
        const bool connected = ConnectUnixSocket(fd, eventSocket.c_str());
        close(fd);
        if (connected) {
          g_Debug.Print(1, "WaitForServiceAvailable: omad service is now available (AccumulatedWaitTime=%d)\n",
                        static_cast<int>(accumulated));
          return true;
        }
      }
    }
    accumulated += kCheckPeriod;
    if (accumulated > maxWait) {
      g_Debug.Print(1, "WaitForServiceAvailable: AccumulatedWaitTime=%d expired -> bail out\n",
                    static_cast<int>(accumulated));
      return false;
    }
  }
}
