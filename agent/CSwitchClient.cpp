#include "agent/CSwitchClient.h"

#include <errno.h>
#include <strings.h>

#include "agent/JsonChannel.h"
#include "agent/SipJson.h"
#include "runtime/CDebug.h"
#include "runtime/CSystemRoot.h"

CSwitchClient::CSwitchClient() = default;

CSwitchClient::~CSwitchClient() {
  if (m_EventsEnabled.load()) JsonDisableEvents();
  JoinEventThread();  // one stopped from its own handler may still be returning
  if (m_FdRequestChannel >= 0) {
    JsonDetach(m_FdRequestChannel, CSystemRoot::Path(kRequestSocket).c_str());
    m_FdRequestChannel = -1;
  }
  m_AttachCount = 0;
}

void CSwitchClient::SetLastError(unsigned code, const char* text) {
  m_LastError = code;
  m_LastErrorMsg = text;
}

bool CSwitchClient::CheckForInstalledService() {
  if (!m_DaemonPath.empty()) return true;
  const std::string daemon = CSystemRoot::Path(kDaemonPath);
  const std::string alternative = CSystemRoot::Path(kAltDaemonPath);
  if (IsServiceInstalled(daemon.c_str())) {
    m_DaemonPath = daemon;
  } else if (IsServiceInstalled(alternative.c_str())) {
    m_DaemonPath = alternative;
  } else {
    g_Debug.Print(1, "\nCSwitchClient::CheckForInstalledService: ## ERROR! No installed omad service detected!\n");
    SetLastError(ENXIO, "No omad service installed");
    return false;
  }
  return true;
}

bool CSwitchClient::Attach(const char* serverName, bool, unsigned) {
  g_Debug.Print(4, "\nCSwitchClient::Attach: Attach to Tessel...");
  if (serverName != nullptr && serverName[0] != '\0') {
    g_Debug.Print(1, "\nCSwitchClient::Attach: ## ERROR! Cannot connect to remote server on this platform!");
    SetLastError(EINVAL, "Remote connection not supported");
    return false;
  }
  bool attached = false;
  {
    std::lock_guard lock(m_Mutex);
    if (m_AttachCount != 0) {
      ++m_AttachCount;
      g_Debug.Print(4, "\nCSwitchClient::Attach: Already attached - increment attach reference count to %d",
                    static_cast<int>(m_AttachCount));
      attached = true;
    } else {
      g_Debug.Print(4, "\nCSwitchClient::Attach: Checking for service installed and running...");
      if (!CheckForInstalledService()) {
        g_Debug.Print(3, "\nCSwitchClient::Attach:   no service installed - cannot attach!");
      } else {
        g_Debug.Print(4, "\nCSwitchClient::CheckForInstalledService: Name of installed omad service: \"%s\"\n",
                      m_DaemonPath.c_str());
        g_Debug.Print(4, "\nCSwitchClient::Attach:   service %s is installed; check/wait for being ready...",
                      m_DaemonPath.c_str());
        if (!IsServiceReady(m_DaemonPath.c_str(), CSystemRoot::Path(kClassicSocket).c_str())) {
          g_Debug.Print(
              3, "\nCSwitchClient::Attach:   Service installed and running, omad could not be connected - cannot attach!");
        } else {
          const int fd = JsonAttach(CSystemRoot::Path(kRequestSocket).c_str(), m_ApplicationName.c_str());
          if (fd < 0) {
            SetLastError(ENOPROTOOPT, "JSON interface not supported by omad");
            g_Debug.Print(3,
                          "\nCSwitchClient::Attach:   Service installed and running, but no JSON interface available - "
                          "cannot attach!");
          } else {
            m_FdRequestChannel = fd;
            m_AttachCount = 1;
            g_Debug.Print(4, "\nCSwitchClient::Attach: Client successfully attached");
            attached = true;
          }
        }
      }
    }
  }
  g_Debug.Print(4, "\nCSwitchClient::Attach: -> attached=%d", attached ? 1 : 0);
  return attached;
}

void CSwitchClient::Detach() {
  int fd;
  {
    std::lock_guard lock(m_Mutex);
    if (m_AttachCount == 0) return;
    g_Debug.Print(4, "\nCSwitchClient::Detach: reference count = %d, decrement count", static_cast<int>(m_AttachCount));
    if (--m_AttachCount != 0) return;
    // Taken out under the lock, closed after events stop: the stop waits for
    // the event thread without the lock, since a handler may be in Request.
    fd = m_FdRequestChannel;
    m_FdRequestChannel = -1;
  }
  if (m_EventsEnabled.load()) JsonDisableEvents();
  g_Debug.Print(4, "\nCSwitchClient::Detach: Last client detaches - finally detach from server");
  JsonDetach(fd, CSystemRoot::Path(kRequestSocket).c_str());
  g_Debug.Print(4, "\nCSwitchClient::Detach: Detached");
}

unsigned CSwitchClient::Request(SipJson& cmd, unsigned timeout) {
  // Serialising and parsing stay outside the lock; only the exchange is serialised.
  std::string text;
  cmd.Serialize(text);
  std::string reply;
  unsigned rc;
  {
    std::lock_guard lock(m_Mutex);
    rc = JsonSendRequest(m_FdRequestChannel, text.c_str(), reply, timeout);
  }
  if (g_Debug.IsEnabled()) g_Debug.Print(4, "\nCSwitchClient::Request: reply data: %s", reply.c_str());
  if (rc != kJsonOk) {
    g_Debug.Print(1, "\nCSwitchClient::Request: request failed with rc=%d", static_cast<int>(rc));
    SipJson::SetCmdElemValue(cmd.GetCmd(), "ST", rc, false);
  } else {
    cmd.ParseReply(reply);
  }
  const int current = cmd.GetCmdIndex();
  if (g_Debug.IsEnabled())
    g_Debug.Print(3,
                  "\nCSwitchClient::Request: Receive response OC=0x%04X, OE=0x%04X, CB=0x%08X, OI=0x%08X, "
                  "Status=0x%04X",
                  cmd.GetCmdElemValue(current, "OC", 0), cmd.GetCmdElemValue(current, "OE", 0),
                  cmd.GetCmdElemValue(current, "CA", 0), cmd.GetCmdElemValue(current, "OI", 0),
                  cmd.GetCmdElemValue(current, "ST", SipJson::kStatusAbsent));
  return cmd.GetCmdElemValue(current, "ST", SipJson::kStatusAbsent);
}

bool CSwitchClient::GetServerCabinetNumber(unsigned& cabinet) {
  g_Debug.Print(2, "\nCSwitchClient       : Requesting server cabinet number...");
  SipJson record;
  record.JsonInit();
  SipJson::SetCmdElemValue(record.GetCmd(), "OC", kCabinetOpCode, false);
  Request(record, 0);
  unsigned value = 0;
  if (record.GetCmdUIntData(record.GetCmdIndex(), value)) {
    cabinet = value;
    g_Debug.Print(2, "\nCSwitchClient       : -> server cabinet number = %d (0x%02X)", static_cast<int>(value), value);
    return true;
  }
  g_Debug.Print(1, "\nCSwitchClient       : ## ERROR! Failed to request server cabinet number (0x%02X)",
                record.GetCmdElemValue(record.GetCmdIndex(), "ST", SipJson::kStatusAbsent));
  return false;
}

bool CSwitchClient::SetApplicationName(const char* name) {
  if (name == nullptr) return false;
  g_Debug.Print(4, "\nCSwitchClient::SetApplicationName: Set client application name to \"%s\"\n", name);
  std::lock_guard lock(m_Mutex);
  m_ApplicationName = name;
  return true;
}

bool CSwitchClient::SetLogonUser(const char*, const char*, const char*) { return true; }

bool CSwitchClient::SetRequestMethod(const char* method) {
  return method != nullptr && strcasecmp(method, "JsonRequest") == 0;
}

bool CSwitchClient::GetCurrentRequestMethod(std::string& method) const {
  method = "JsonRequest";
  return true;
}

unsigned CSwitchClient::GetLastError() const { return m_LastError; }

std::string CSwitchClient::GetLastErrorMsg(std::string& msg) const {
  msg = m_LastErrorMsg != nullptr ? m_LastErrorMsg : "";
  return msg;
}

void CSwitchClient::Event(SipJson&) {}

unsigned CSwitchClient::GetAttachCount() const {
  std::lock_guard lock(m_Mutex);
  return m_AttachCount;
}

int CSwitchClient::GetRequestFd() const {
  std::lock_guard lock(m_Mutex);
  return m_FdRequestChannel;
}

std::string CSwitchClient::GetApplicationName() const {
  std::lock_guard lock(m_Mutex);
  return m_ApplicationName;
}
