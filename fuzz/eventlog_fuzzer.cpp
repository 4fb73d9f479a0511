// The system event log block comes from the agent as one raw byte block of
// variable-length records. The fuzzer's bytes are that block. A severity
// outside 0..3 ends the page with std::out_of_range("map::at") on purpose,
// so that exception is expected; any other escape, a hang or a read outside
// the block is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "pages/SystemEventLog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A copy of exactly `size` bytes, so ASan sees any read past the block.
  std::vector<unsigned char> block(data, data + size);
  std::vector<SystemEventLog::Row> rows;
  try {
    rows = SystemEventLog::rowsFromBlock(block.data(), block.size());
  } catch (const std::out_of_range& e) {
    if (strcmp(e.what(), "map::at") != 0) abort();
    return 0;
  }
  // Each row's record starts further on and holds its fixed fields inside
  // the block; a message stays inside the block, and all messages together
  // copy at most twice the block (the walk stays linear).
  const size_t fixed = SystemEventLog::kTimeEnd;
  if (rows.size() > (size < fixed ? 0 : size - fixed + 1)) abort();
  size_t copied = 0;
  for (const SystemEventLog::Row& row : rows) {
    if (row.cells.size() != 3) abort();
    if (row.cells[0].compare(0, 2, "0x") != 0) abort();
    const std::string& message = row.cells[2];
    if (message.find('\0') != std::string::npos) abort();
    if (!message.empty() && message.size() + SystemEventLog::kHeaderSize > size) abort();
    copied += message.size();
  }
  if (copied > 2 * size) abort();
  return 0;
}
