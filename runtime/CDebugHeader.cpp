// Log header of CDebug: the block that opens the ring buffer (and every wrap
// of it) with the command line, the environment and configuration tables
// captured at start, and the trace settings in effect.
#include <cstdlib>

#include "runtime/CDebug.h"

namespace {

// Shown in the log header, so a trace tells which environment it ran in.
const char* const kEnvironmentNames[] = {
    "LD_LIBRARY_PATH", "OV_SYSTEM", "OV_OS", "OV_OS_MAJOR", "OV_OS_MINOR", "OV_VVOS",
    "OV_RELEASE", "OV_VENDOR", "OV_HOSTNAME", "OV_HOSTOSREVMAJOR", "OV_HOSTOSREVMINOR",
    "OV_SYSNAME", "OV_VERSION", "OV_NICKNAME", "OV_HWPLATFORM", "OV_RUNNINGONVM",
    "OV_RUNNINGONPAN", "OV_VMREL", "OV_ARCH", "OV_REPO", "OV_RAID_EXISTS", "OV_RAID_READY",
    "OV_RAID_VERSION", "OV_INSTALL_DATE", "OV_USE_SG_IO_HDR_T", "OV_AGENT_X_SOCKET",
    "OV_OMAD_REPLY_TIME", "OV_DAEMON_COREFILE_LIMIT", "OV_VME_WAIT_TIME_FOR_VMSERVER",
    "OV_SCS_PROVIDER_TRACE", "OV_SCS_NOSIGNAL", "OV_LOG_DYNAMIC_UPDATE", "OV_SCS_DEBUG_LEVEL",
    "OV_LOG_FILE_DIR", "OV_LOG_FILE_MAX_SIZE", "OV_LOG_RINGBUF_DIR", "OV_LOG_DEBUG_LEVEL",
    "OV_LOG_RINGBUF_WEIGHT", "OV_LOG_NOHDR_TOSDTERR", "QRT_OV_HOME", "QRT_SYSLOG_FIFO",
    nullptr};

const char* const kConfigurationNames[] = {
    "AgentPermission", "AgentShut", "ShutdownDelay", "UserGroup", "ScanTapeDevices",
    "TraceFileLimit", "NoAccountCheck", "InventoryRescan", "CDPollInterval",
    "AgentsToBeStarted", "WaitForOmadSockets", "WaitForOmadTerm", "InvAgtPollNetUtilization",
    nullptr};

constexpr char kNotSet[] = "NotSet";

}  // namespace

void CDebug::CaptureEnvironment() {
  for (size_t i = 0; i < kEnvironmentCount; ++i) {
    const char* value = getenv(kEnvironmentNames[i]);
    m_Environment[i].set = value != nullptr;
    m_Environment[i].value = value != nullptr ? value : "";
  }
  for (size_t i = 0; i < kConfigurationCount; ++i) {
    const char* value = getenv(kConfigurationNames[i]);
    m_Configuration[i].set = value != nullptr;
    m_Configuration[i].value = value != nullptr ? value : "";
  }
}

void CDebug::WriteArguments(unsigned target) {
  if (m_Argc <= 0 || m_Argv == nullptr) return;
  PrintIt(target, "\n%s Command Line Options:", m_InstanceName != nullptr ? m_InstanceName : "");
  for (int i = 0; i < m_Argc; ++i) {
    PrintIt(target, "\nargv[%d] = \"%s\"", i, m_Argv[i] != nullptr ? m_Argv[i] : "");
  }
}

void CDebug::WriteLogHeader(unsigned target) {
  m_WritingHeader = true;
  WriteArguments(target);
  PrintIt(target, "\nOrvana Environment:");
  for (size_t i = 0; i < kEnvironmentCount; ++i) {
    PrintIt(target, "\n%s=%s", kEnvironmentNames[i],
            m_Environment[i].set ? m_Environment[i].value.c_str() : kNotSet);
  }
  char weightVariable[kWeightVariableSize];
  WeightVariableName(weightVariable, m_InstanceName != nullptr ? m_InstanceName : "");
  const char* weight = getenv(weightVariable);
  PrintIt(target, "\n%s=%s", weightVariable, weight != nullptr ? weight : kNotSet);

  PrintIt(target, "\nOrvana Configuration File:");
  for (size_t i = 0; i < kConfigurationCount; ++i) {
    PrintIt(target, "\n%s=%s", kConfigurationNames[i],
            m_Configuration[i].set ? m_Configuration[i].value.c_str() : kNotSet);
  }

  PrintIt(target, "\nDebug values from ini file :");
  PrintIt(target, "\nDynamicUpdate              : %d", static_cast<int>(m_FileDynamicUpdate));
  PrintIt(target, "\nDebugLevel                 : %d", static_cast<int>(m_FileDebugLevel));
  PrintIt(target, "\nRingBufferSizeFactor       : %d", static_cast<int>(m_FileRingFactor));
  PrintIt(target, "\nRingBufferSizeWeight       : %d", static_cast<int>(m_FileRingWeight));
  PrintIt(target, "\nRingBufferDirectory        : %s", m_FileRingDirectory);
  PrintIt(target, "\nNo Header to LogFile       : %d", static_cast<int>(m_FileNoHeader));

  PrintIt(target, "\nInternal Debug values      :");
  PrintIt(target, "\nProcess PID                : %d", m_ProcessId);
  PrintIt(target, "\nTrace Target               : %d", static_cast<int>(m_TraceTarget));
  PrintIt(target, "\nTrace Level                : %d", static_cast<int>(GetTraceLevel()));
  PrintIt(target, "\nTrace Level Saved          : %d", static_cast<int>(m_SavedTraceLevel));
  PrintIt(target, "\nApplication Init Done      : %d", static_cast<int>(m_ApplInitDone));
  PrintIt(target, "\nLogFile Path               : %s", m_LogPath);
  PrintIt(target, "\nLogFile Max Size           : %d", static_cast<int>(m_LogMaxSize));
  PrintIt(target, "\nRing Buffer FD             : %d", m_RingFd);
  PrintIt(target, "\nRing Buffer Factor         : %d", static_cast<int>(m_RingFactor));
  PrintIt(target, "\nRing Buffer Weight         : %d", static_cast<int>(m_RingWeight));
  PrintIt(target, "\nRing Buffer Size           : %d", static_cast<int>(m_RingSize));
  PrintIt(target, "\nRing Buffer Directory      : %s", m_TraceDirectory);
  PrintIt(target, "\nRing Buffer Path           : %s", m_RingPath);
  PrintIt(target, "\nNo Header to LogFile       : %d", static_cast<int>(m_NoHeaderFlag));
  PrintIt(target, "\n# End of header.");
  m_WritingHeader = false;
}
