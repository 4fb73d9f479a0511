// Configuration of CDebug: the trace settings read once at start from the
// INI files and the environment, and the dynamic update that looks at the
// files again while the program runs.
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "runtime/CDebug.h"
#include "runtime/CDirectoryList.h"
#include "runtime/CSystemRoot.h"

namespace {

constexpr char kWeightVariable[] = "OV_LOG_RINGBUF_WEIGHT";

// Decimal, as the environment has always been read (so "0x3" is 0).
bool EnvironmentUnsigned(const char* name, unsigned& value) {
  const char* text = getenv(name);
  if (text == nullptr) return false;
  value = static_cast<unsigned>(strtol(text, nullptr, 10));
  return true;
}

// Re-opens the reader's section when its file changed since the last look.
// A file that has gone closes the reader: it is not looked at again.
bool ReopenIfChanged(CDebugTraceConfigFile& reader, const char* section) {
  if (reader.Path().empty()) return false;
  struct stat info;
  if (stat(reader.Path().c_str(), &info) != 0) {
    reader.CloseSectionInIniFile();
    return false;
  }
  if (info.st_mtime <= reader.ModificationTime()) return false;
  reader.SetFileState(info.st_size, info.st_mtime);
  return reader.OpenSectionInIniFile(section, nullptr, nullptr);
}

}  // namespace

bool CDebug::ReadDebugConfig(const char* name) {
  const std::string configDirectory = CSystemRoot::Path(kConfigDirectory);
  std::vector<std::string> files;
  bool listed = CDirectoryList::ListIniFiles(configDirectory.c_str(), files);
  // A configuration directory without any file means "leave tracing alone":
  // not even the environment is applied. Long-standing behaviour the suite's
  // installation scripts rely on.
  if (listed && files.empty()) return true;

  m_FileRingFactor = kNotGiven;
  m_FileRingWeight = kNotGiven;
  m_FileNoHeader = kNotGiven;
  m_FileMemoryTraces = kNotGiven;
  m_FileRingDirectory[0] = '\0';

  if (m_GlobalSettings.OpenSectionInIniFile(kGlobalSection, kGlobalFile,
                                            configDirectory.c_str())) {
    m_GlobalSettings.ReadUnsigned("DynamicUpdate", m_FileDynamicUpdate);
  }
  unsigned interval = m_FileDynamicUpdate;
  EnvironmentUnsigned("OV_LOG_DYNAMIC_UPDATE", interval);
  m_DynamicUpdateInterval = interval;

  const char* section = name != nullptr ? name : "";
  for (const std::string& file : files) {
    if (m_ApplSettings.OpenSectionInIniFile(section, file.c_str(), configDirectory.c_str())) {
      m_ApplSettings.ReadText("RingBufferDirectory", m_FileRingDirectory,
                              sizeof m_FileRingDirectory, sizeof m_FileRingDirectory - 1);
      m_ApplSettings.ReadUnsigned("FileDebugLevel", m_FileDebugLevel);
      m_ApplSettings.ReadUnsigned("TraceFlags", m_TraceFlags);
      m_ApplSettings.ReadUnsigned("RingBufferSizeFactor", m_FileRingFactor);
      m_ApplSettings.ReadUnsigned("RingBufferSizeWeight", m_FileRingWeight);
      m_ApplSettings.ReadUnsigned("NoHeaderToStderr", m_FileNoHeader);
      m_ApplSettings.ReadUnsigned("MemoryTracesFlag", m_FileMemoryTraces);
      break;
    }
  }

  const std::string defaultDirectory = CSystemRoot::Path(kDefaultTraceDirectory);
  const char* fileDirectory = m_FileRingDirectory[0] != '\0' ? m_FileRingDirectory : nullptr;
  // Two settings used to choose the directory; the ring buffer's has always
  // won, so the log file one is read but cannot have any effect.
  const char* directory = getenv("OV_LOG_FILE_DIR");
  if (directory == nullptr) directory = fileDirectory;
  if (directory == nullptr) directory = defaultDirectory.c_str();
  CopyText(m_TraceDirectory, sizeof m_TraceDirectory, directory);
  directory = getenv("OV_LOG_RINGBUF_DIR");
  if (directory == nullptr) directory = fileDirectory;
  if (directory == nullptr) directory = defaultDirectory.c_str();
  CopyText(m_TraceDirectory, sizeof m_TraceDirectory, directory);

  EnvironmentUnsigned("OV_LOG_FILE_MAX_SIZE", m_LogMaxSize);

  unsigned level = m_FileDebugLevel;
  EnvironmentUnsigned("OV_LOG_DEBUG_LEVEL", level);
  m_TraceLevel = level;

  m_RingFactor = m_FileRingFactor != kNotGiven ? m_FileRingFactor : 0;
  EnvironmentUnsigned("TraceFileLimit", m_RingFactor);
  m_RingWeight = m_FileRingWeight != kNotGiven ? m_FileRingWeight : 0;
  EnvironmentUnsigned(kWeightVariable, m_RingWeight);

  m_NoHeaderFlag = m_FileNoHeader != kNotGiven ? m_FileNoHeader : 1;
  EnvironmentUnsigned("OV_LOG_NOHDR_TOSDTERR", m_NoHeaderFlag);

  m_SavedTraceLevel = m_TraceLevel;
  return true;
}

void CDebug::WeightVariableName(char (&buf)[kWeightVariableSize], const char* instance) {
  CopyText(buf, sizeof buf, kWeightVariable);
  BuildAppVarName(buf, sizeof buf, instance);
}

void CDebug::ApplyWeightOverride(const char* instance) {
  // The per-application weight wins over both the file and the general
  // variable.
  char weightVariable[kWeightVariableSize];
  WeightVariableName(weightVariable, instance);
  EnvironmentUnsigned(weightVariable, m_RingWeight);
}

void CDebug::CheckDynamicUpdate() {
  if (ReopenIfChanged(m_GlobalSettings, kGlobalSection) &&
      m_GlobalSettings.ReadUnsigned("DynamicUpdate", m_FileDynamicUpdate)) {
    m_DynamicUpdateInterval = m_FileDynamicUpdate;
  }
  const char* section = m_InstanceName != nullptr ? m_InstanceName : "";
  if (ReopenIfChanged(m_ApplSettings, section)) {
    // The file now wins over the environment for the rest of the run.
    if (m_ApplSettings.ReadUnsigned("FileDebugLevel", m_FileDebugLevel)) {
      m_TraceLevel = m_FileDebugLevel;
      m_SavedTraceLevel = m_FileDebugLevel;
      m_Enabled = m_FileDebugLevel != 0;
    }
    m_ApplSettings.ReadUnsigned("TraceFlags", m_TraceFlags);
    m_ApplSettings.ReadUnsigned("MemoryTracesFlag", m_FileMemoryTraces);
  }
}
