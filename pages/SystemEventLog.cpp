#include "pages/SystemEventLog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "runtime/CDebug.h"
#include "runtime/CProcess.h"
#include "runtime/CServerControlPaths.h"
#include "runtime/LittleEndian.h"
#include "xml/CMarkup.h"

namespace {

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
  static const char kCutOff[] = "the block ends inside its fixed fields";
  const char* stop = nullptr;  // why the walk ended early
  while (data != nullptr && offset < size) {
    const unsigned char* record = data + offset;
    const size_t left = size - offset;
    // Each record is taken field by field up to the first that lies outside
    // the block, the severity first: an unknown one ends the page even in a
    // record the walk cannot finish.
    if (left <= kSeverityAt) { stop = kCutOff; break; }
    const ComponentStatus& status = severityStatus(record[kSeverityAt]);
    if (left < kTimeEnd) { stop = kCutOff; break; }
    const size_t length = LittleEndian::Read16(record);

    Row row;
    row.status = status;
    row.cells.reserve(3);
    row.cells.push_back(codeText(LittleEndian::Read16(record + kCodeAt)));
    row.cells.push_back(timeText(LittleEndian::ReadI32(record + kTimeAt)));
    // The text runs to its NUL, inside the block. It may run on into the
    // following records, but no further than its own record is long while
    // the walk goes on: otherwise a block without NULs would make every row
    // copy the rest of the block. The record that ends the walk may read to
    // the block's end.
    const bool last = length == 0 || length > left;
    const size_t room = left > kHeaderSize ? left - kHeaderSize : 0;
    const size_t most = last ? room : std::min(room, length);
    const char* message = most > 0 ? reinterpret_cast<const char*>(record + kHeaderSize) : "";
    row.cells.emplace_back(message, strnlen(message, most));
    rows.push_back(std::move(row));

    if (length == 0) { stop = "length 0"; break; }
    if (length > left) { stop = "its length runs past the block"; break; }
    offset += length;
  }
  if (stop != nullptr && g_Debug.IsEnabled()) {
    g_Debug.Print(1, "\nSystemEventLog::rowsFromBlock: walk stopped at the record at offset %zu of %zu: %s",
                  offset, size, stop);
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
