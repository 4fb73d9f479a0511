#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "html/ComponentStatus.h"

class CMarkup;

// The system event log as the agent delivers it: one raw block of
// variable-length little-endian records
//   0: u16 record length (header included)   3: u8 severity 0..3
//   4: u16 event code                         8: i32 seconds since 1970 UTC
//  16: NUL-terminated message
// turned into table rows (status, code text, time text, message).
class SystemEventLog {
 public:
  static constexpr unsigned kValueId = 0x0B10;
  static constexpr size_t kSeverityAt = 3;
  static constexpr size_t kCodeAt = 4;
  static constexpr size_t kTimeAt = 8;
  static constexpr size_t kTimeEnd = 12;  // a row needs the block to reach this far
  static constexpr size_t kHeaderSize = 16;
  static constexpr const char* kMessageFileName = "ERRMSG.XML";
  static constexpr const char* kNoTime = " <no date/no time> ";

  struct Row {
    ComponentStatus status;
    std::vector<std::string> cells;  // code, time, message
  };

  // Rows in block order, one per record reached. Fields are read where the
  // record says, also past a length shorter than the header, but never past
  // the block: the walk stops at a record whose fixed fields the block cuts
  // off, and after a record of length 0 or one longer than the bytes left.
  // A message ends at its NUL, its record's end or the block's end.
  // A severity outside 0..3 throws std::out_of_range ("map::at"): a block
  // like that must not produce a report.
  static std::vector<Row> rowsFromBlock(const unsigned char* data, size_t size);

  // Severity -> status and its text; std::out_of_range for unknown ones.
  static const ComponentStatus& severityStatus(unsigned severity);
  // The high byte of the code moves to bits 16..23: 0x1234 -> "0x120034".
  static std::string codeText(uint16_t code);
  // "%Y/%m/%d %H:%M:%S" in UTC, or kNoTime for 0, negative or unbreakable.
  static std::string timeText(int32_t seconds);

  // Loads the event message file into messages: the current directory
  // first, then the installation's program directory. The rows do not use
  // it; the search is traced. True when a file was loaded.
  static bool loadMessageFile(CMarkup& messages);
};
