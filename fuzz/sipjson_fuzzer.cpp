// Feeds arbitrary reply texts to the command record and reads them back
// through every getter, on the command the program uses (0) and the next one.
// A reply that was kept must survive its own serialisation: the record is
// sent again as the next request. (Numbers with a fraction need not come
// back bit for bit; the reader parses them without full precision.)
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "agent/SipJson.h"

namespace {

void ReadEverything(const SipJson& record, int cmd) {
  std::vector<unsigned char> bytes;
  std::string text;
  unsigned number = 0;
  (void)record.GetCmdDataType(cmd);
  (void)record.GetCmdDataSize(cmd);
  (void)record.GetCmdDataStream(cmd, bytes);
  (void)record.GetCmdUIntData(cmd, number);
  for (size_t offset : {size_t{0}, size_t{1}, size_t{4}, size_t{65}, bytes.size(), size_t{1} << 20}) {
    (void)record.GetCmdDataString(cmd, text, offset);
  }
  for (const char* name : {"OC", "OE", "OI", "CA", "ST", "DA", "RAW", ""}) {
    (void)record.GetCmdElemValue(cmd, name, 22);
    (void)record.FindCmdMember(cmd, name);
  }
  (void)record.FindCmd(cmd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  SipJson record;
  const bool kept = record.ParseReply(reinterpret_cast<const char*>(data), size);
  for (int cmd : {0, 1}) {
    record.SetCmdIndex(cmd);
    ReadEverything(record, cmd);
    (void)record.HasReplyData();
  }
  record.SetCmdIndex(0);

  if (kept) {
    const std::string once = record.Serialize();
    SipJson again;
    if (!again.ParseReply(once)) abort();
    for (const char* name : {"OC", "OE", "OI", "CA", "ST"}) {
      const SipJson::GenericValue* member = record.FindCmdMember(0, name);
      if (member != nullptr && member->IsDouble()) continue;
      if (again.GetCmdElemValue(0, name, 22) != record.GetCmdElemValue(0, name, 22)) abort();
    }
    if (again.GetCmdDataType(0) != record.GetCmdDataType(0)) abort();
  }

  // The record is reused for the next request after a reply: filling it
  // must work whatever the reply left behind.
  SipJson::GenericValue& cmd = record.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", 0x0B10, false);
  SipJson::SetCmdElemValue(cmd, "OE", 0, true);
  SipJson::SetCmdElemValue(cmd, "CA", 0, false);
  (void)record.Serialize();
  return 0;
}
