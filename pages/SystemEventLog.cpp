#include "pages/SystemEventLog.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "runtime/CDebug.h"
#include "runtime/CProcess.h"
#include "runtime/CServerControlPaths.h"
#include "xml/CMarkup.h"

namespace {

uint16_t readU16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

int32_t readI32(const unsigned char* p) {
  uint32_t value = static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
                   (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
  int32_t result;
  std::memcpy(&result, &value, sizeof result);
  return result;
}

bool tryLoad(CMarkup& messages, const std::string& path) {
  if (g_Debug.IsEnabled()) g_Debug.Print(4, "\nCLogMsgFile         : Try to open file \"%s\"", path.c_str());
  return messages.Load(path.c_str());
}

}  // namespace

const ComponentStatus& SystemEventLog::severityStatus(unsigned severity) {
  static const std::map<unsigned, ComponentStatus> severities = {
      {0, ComponentStatus(STATUS_NORMAL, "Info")},
      {1, ComponentStatus(STATUS_WARNING, "Minor")},
      {2, ComponentStatus(STATUS_ERROR, "Major")},
      {3, ComponentStatus(STATUS_ERROR, "Critical")},
  };
  return severities.at(severity);
}

std::string SystemEventLog::codeText(uint16_t code) {
  unsigned spread = ((static_cast<unsigned>(code) << 8) & 0xFF0000u) | (code & 0xFFu);
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", spread);
  return text;
}

std::string SystemEventLog::timeText(int32_t seconds) {
  if (seconds <= 0) return kNoTime;
  time_t when = seconds;
  struct tm broken {};
  if (gmtime_r(&when, &broken) == nullptr) return kNoTime;
  char text[100];
  size_t length = std::strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &broken);
  return std::string(text, length);
}

std::vector<SystemEventLog::Row> SystemEventLog::rowsFromBlock(const unsigned char* data, size_t size) {
  std::vector<Row> rows;
  size_t offset = 0;
  while (data != nullptr && offset < size) {
    size_t left = size - offset;
    const unsigned char* record = data + offset;
    size_t length = left >= 2 ? readU16(record) : 0;
    if (left < kHeaderSize || length < kHeaderSize || length > left) break;
    const unsigned char* message = record + kHeaderSize;
    const void* terminator = std::memchr(message, '\0', length - kHeaderSize);
    if (terminator == nullptr) break;

    Row row;
    row.status = severityStatus(record[3]);
    row.cells.reserve(3);
    row.cells.push_back(codeText(readU16(record + 4)));
    row.cells.push_back(timeText(readI32(record + 8)));
    row.cells.emplace_back(reinterpret_cast<const char*>(message),
                           static_cast<const unsigned char*>(terminator) - message);
    rows.push_back(std::move(row));
    offset += length;
  }
  if (offset < size && g_Debug.IsEnabled()) {
    g_Debug.Print(1, "\nSystemEventLog::rowsFromBlock: malformed record at offset %zu, last %zu bytes ignored",
                  offset, size - offset);
  }
  return rows;
}

bool SystemEventLog::loadMessageFile(CMarkup& messages) {
  messages.SetDoc();
  if (g_Debug.IsEnabled()) {
    g_Debug.Print(4, "\nCLogMsgFile         : Use event messages file \"%s\" for decoding", kMessageFileName);
    g_Debug.Print(4, "\nCLogMsgFile         : Search for file in current directory ...");
  }
  std::string path;
  bool loaded = false;
  std::string directory;
  if (CProcess::GetCurrentDir(directory)) {
    path = directory + "/" + kMessageFileName;
    loaded = tryLoad(messages, path);
  }
  if (!loaded) {
    if (g_Debug.IsEnabled()) g_Debug.Print(4, "\nCLogMsgFile         : Search for file in registered directory ...");
    std::string binPath;
    CServerControlPaths::GetServerControlBinPath(binPath);
    path = binPath + "/" + kMessageFileName;
    loaded = tryLoad(messages, path);
  }
  if (g_Debug.IsEnabled()) {
    g_Debug.Print(2, "\nCLogMsgFile         : Event messages %s opened in \"%s\"!", loaded ? "successfully" : "not",
                  path.c_str());
  }
  return loaded;
}
