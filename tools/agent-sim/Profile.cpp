#include "Profile.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <sstream>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace agentsim {

bool ParseUnsigned(const std::string& text, uint32_t& out) {
  if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return false;
  errno = 0;
  char* end = nullptr;
  unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (errno != 0 || *end != '\0' || value > 0xFFFFFFFFull) return false;
  out = static_cast<uint32_t>(value);
  return true;
}

std::string Compact(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

namespace {

using rapidjson::Value;

enum class Kind { kNumber, kString };

// One member of a component entry and the value id it becomes; the entry's
// position is the object index.
struct Field {
  const char* key;
  Kind kind;
  uint32_t oc;
};

class ProfileReader {
 public:
  ProfileReader(Profile& profile, std::string& error) : profile_(profile), error_(error) {}

  bool Read(const Value& root);

 private:
  using EntryHook = std::function<bool(const Value& entry, uint32_t index, const std::string& where)>;

  bool Fail(const std::string& where, const std::string& what) {
    error_ = where + ": " + what;
    return false;
  }
  bool OnlyKeys(const Value& object, const std::string& where, std::initializer_list<const char*> allowed,
                const std::vector<Field>* fields = nullptr);
  bool Number(const Value& value, const std::string& where, uint64_t& out);
  bool Store(const Value& value, Kind kind, const std::string& where, Address at);
  // A list of components: its count at `countAt` and one value per field at
  // (field.oc, oe, index).
  bool ReadList(const Value& parent, const char* key, const std::string& where, Address countAt, uint32_t oe,
                const std::vector<Field>& fields, std::initializer_list<const char*> extraKeys = {},
                const EntryHook& hook = nullptr);
  bool ReadSystem(const Value& system);
  bool ReadVoltageLimits(const Value& entry, uint32_t index, const std::string& where);
  bool ReadRaid(const Value& raid);
  bool ReadOverall(const Value& overall);
  bool ReadIpAddresses(const Value& list);
  bool ReadEventLog(const Value& list);
  bool ReadEvents(const Value& list);
  bool ReadOverrides(const Value& list);
  bool ReadAnswer(const Value& entry, const std::string& where, AgentValue& value);
  bool ReadAddress(const Value& entry, const std::string& where, Address& at);

  Profile& profile_;
  std::string& error_;
};

bool ProfileReader::OnlyKeys(const Value& object, const std::string& where, std::initializer_list<const char*> allowed,
                             const std::vector<Field>* fields) {
  if (!object.IsObject()) return Fail(where, "must be an object");
  for (auto member = object.MemberBegin(); member != object.MemberEnd(); ++member) {
    std::string name = member->name.GetString();
    bool known = false;
    for (const char* key : allowed) known = known || name == key;
    if (fields)
      for (const Field& field : *fields) known = known || name == field.key;
    // A typo would silently drop a value, so unknown members are errors.
    if (!known) return Fail(where, "unknown member \"" + name + "\"");
  }
  return true;
}

bool ProfileReader::Number(const Value& value, const std::string& where, uint64_t& out) {
  if (value.IsUint64()) {
    out = value.GetUint64();
    return true;
  }
  uint32_t parsed = 0;
  if (value.IsString() && ParseUnsigned(value.GetString(), parsed)) {
    out = parsed;
    return true;
  }
  return Fail(where, "must be an unsigned number");
}

bool ProfileReader::Store(const Value& value, Kind kind, const std::string& where, Address at) {
  if (kind == Kind::kString) {
    if (!value.IsString()) return Fail(where, "must be a string");
    profile_.values.SetString(at, value.GetString());
    return true;
  }
  uint64_t number = 0;
  if (!Number(value, where, number)) return false;
  profile_.values.SetNumber(at, number);
  return true;
}

bool ProfileReader::ReadList(const Value& parent, const char* key, const std::string& where, Address countAt,
                             uint32_t oe, const std::vector<Field>& fields, std::initializer_list<const char*> extraKeys,
                             const EntryHook& hook) {
  std::string listWhere = where + key;
  auto member = parent.FindMember(key);
  // The agent always knows how many of each kind it found, even none.
  if (member == parent.MemberEnd()) {
    profile_.values.SetNumber(countAt, 0);
    return true;
  }
  const Value& list = member->value;
  if (!list.IsArray()) return Fail(listWhere, "must be an array");
  profile_.values.SetNumber(countAt, list.Size());
  for (uint32_t i = 0; i < list.Size(); ++i) {
    const Value& entry = list[i];
    std::string entryWhere = listWhere + "[" + std::to_string(i) + "]";
    if (!OnlyKeys(entry, entryWhere, extraKeys, &fields)) return false;
    for (const Field& field : fields) {
      auto value = entry.FindMember(field.key);
      if (value == entry.MemberEnd()) continue;
      if (!Store(value->value, field.kind, entryWhere + "." + field.key, {field.oc, oe, i})) return false;
    }
    if (hook && !hook(entry, i, entryWhere)) return false;
  }
  return true;
}

bool ProfileReader::ReadSystem(const Value& system) {
  struct Identity {
    const char* key;
    Kind kind;
    Address at;
  };
  static const Identity kIdentity[] = {
      {"model", Kind::kString, {0x0C00, 0x0608, 0}},
      {"serialNumber", Kind::kString, {0x0C00, 0x0600, 0}},
      {"chassisId", Kind::kString, {0x0C00, 0x0108, 0}},
      {"assetTag", Kind::kString, {0xE001, 0x0210, 0}},
      {"uuid", Kind::kString, {0x0C00, 0x1510, 0}},
      {"powerOnSeconds", Kind::kNumber, {0xE001, 0x1010, 0}},
      {"boardSerialNumber", Kind::kString, {0x0C00, 0x0200, 0}},
      {"boardIdentNumber", Kind::kString, {0x0C00, 0x0201, 0}},
      {"biosVersion", Kind::kString, {0x0C00, 0xA006, 0}},
      {"osName", Kind::kString, {0x0C00, 0xA708, 0}},
      {"uptimeSeconds", Kind::kNumber, {0x011E, 0, 0}},
      {"hostName", Kind::kString, {0xE107, 0, 0}},
      {"agentVersion", Kind::kString, {0x0C00, 0xA806, 0}},
      {"currentPowerConsumption", Kind::kString, {0x0931, 0, 0}},
      {"maximumPowerConsumption", Kind::kString, {0x0930, 0, 0}},
  };
  if (!system.IsObject()) return Fail("system", "must be an object");
  for (auto member = system.MemberBegin(); member != system.MemberEnd(); ++member) {
    std::string name = member->name.GetString();
    const Identity* found = nullptr;
    for (const Identity& identity : kIdentity)
      if (name == identity.key) found = &identity;
    if (!found) return Fail("system", "unknown member \"" + name + "\"");
    if (!Store(member->value, found->kind, "system." + name, found->at)) return false;
  }
  return true;
}

bool ProfileReader::ReadVoltageLimits(const Value& entry, uint32_t index, const std::string& where) {
  auto min = entry.FindMember("min");
  auto max = entry.FindMember("max");
  if (min == entry.MemberEnd() && max == entry.MemberEnd()) return true;
  if (min == entry.MemberEnd() || max == entry.MemberEnd()) return Fail(where, "\"min\" and \"max\" go together");
  for (const Value* limit : {&min->value, &max->value})
    if (!limit->IsInt() || limit->GetInt() < -32768 || limit->GetInt() > 32767)
      return Fail(where, "limits are signed 16-bit hundredths of a volt");
  // One word: lower limit in the low half, upper limit in the high half.
  uint16_t low = static_cast<uint16_t>(static_cast<int16_t>(min->value.GetInt()));
  uint16_t high = static_cast<uint16_t>(static_cast<int16_t>(max->value.GetInt()));
  profile_.values.SetRaw({0x0523, 0, index}, {uint8_t(low & 0xFF), uint8_t(low >> 8), uint8_t(high & 0xFF),
                                              uint8_t(high >> 8)});
  return true;
}

bool ProfileReader::ReadRaid(const Value& raid) {
  if (!OnlyKeys(raid, "raid", {"version", "status", "snapshotStatus", "adapters"})) return false;
  auto version = raid.FindMember("version");
  if (version != raid.MemberEnd() && !Store(version->value, Kind::kString, "raid.version", {0x0C00, 0xAA03, 0}))
    return false;
  auto status = raid.FindMember("status");
  if (status != raid.MemberEnd() && !Store(status->value, Kind::kNumber, "raid.status", {0x2120, 0, 0})) return false;
  // The snapshot refresh answers with a number; its value means nothing.
  auto snapshot = raid.FindMember("snapshotStatus");
  profile_.values.SetNumber({0x21DF, 0, 0}, 0);
  if (snapshot != raid.MemberEnd()) {
    uint64_t st = 0;
    if (!Number(snapshot->value, "raid.snapshotStatus", st)) return false;
    if (st != 0) profile_.values.Set({0x21DF, 0, 0}, static_cast<unsigned>(st), "");
  }
  static const std::vector<Field> kAdapter = {{"designation", Kind::kString, 0x2111},
                                              {"status", Kind::kNumber, 0x2116}};
  static const std::vector<Field> kLogical = {{"status", Kind::kNumber, 0x2151},
                                              {"designation", Kind::kString, 0x2152},
                                              {"sizeMB", Kind::kNumber, 0x2153},
                                              {"level", Kind::kString, 0x2155}};
  static const std::vector<Field> kPhysical = {{"status", Kind::kNumber, 0x2131},
                                               {"smart", Kind::kNumber, 0x2132},
                                               {"designation", Kind::kString, 0x2133},
                                               {"interface", Kind::kNumber, 0x2134},
                                               {"sizeMB", Kind::kNumber, 0x2135}};
  // Drives are addressed by adapter number (sub-index) and drive number.
  auto drives = [this](const Value& adapter, uint32_t a, const std::string& where) {
    return ReadList(adapter, "logicalDrives", where + ".", {0x2150, a, 0}, a, kLogical) &&
           ReadList(adapter, "physicalDrives", where + ".", {0x2130, a, 0}, a, kPhysical);
  };
  return ReadList(raid, "adapters", "raid.", {0x2110, 0, 0}, 0, kAdapter, {"logicalDrives", "physicalDrives"}, drives);
}

bool ProfileReader::ReadOverall(const Value& overall) {
  struct Group {
    const char* key;
    Address at;
  };
  static const Group kGroups[] = {
      {"environment", {0x2301, 0, 0}},        {"powerSupply", {0x2301, 1, 0}},
      {"massStorage", {0x2301, 2, 0}},        {"systemBoard", {0x2301, 3, 0}},
      {"network", {0x2301, 5, 0}},            {"massStorageAdapters", {0x1820, 3, 0}},
      {"raidAdapters", {0x2121, 0, 0}},       {"raidLogicalDrives", {0x2122, 0, 0}},
      {"raidPhysicalDrives", {0x2123, 0, 0}}, {"coolingDevices", {0x2306, 0, 0}},
      {"temperature", {0x2306, 0, 2}},        {"powerSupplyUnits", {0x2306, 1, 0}},
      {"voltages", {0x2306, 3, 0}},           {"memoryModules", {0x2306, 3, 1}},
      {"processors", {0x2306, 3, 2}},         {"pciSlots", {0x2306, 3, 4}},
      {"networkAdapters", {0x2306, 5, 0}},
  };
  if (!overall.IsObject()) return Fail("overall", "must be an object");
  for (auto member = overall.MemberBegin(); member != overall.MemberEnd(); ++member) {
    std::string name = member->name.GetString();
    const Group* found = nullptr;
    for (const Group& group : kGroups)
      if (name == group.key) found = &group;
    if (!found) return Fail("overall", "unknown member \"" + name + "\"");
    if (!Store(member->value, Kind::kNumber, "overall." + name, found->at)) return false;
  }
  return true;
}

bool ProfileReader::ReadIpAddresses(const Value& list) {
  if (!list.IsArray()) return Fail("ipAddresses", "must be an array");
  for (uint32_t slot = 0; slot < list.Size(); ++slot) {
    const Value& entry = list[slot];
    std::string where = "ipAddresses[" + std::to_string(slot) + "]";
    std::vector<uint8_t> bytes;
    if (entry.IsString()) {
      unsigned char buffer[16];
      if (inet_pton(AF_INET, entry.GetString(), buffer) == 1) bytes.assign(buffer, buffer + 4);
      else if (inet_pton(AF_INET6, entry.GetString(), buffer) == 1) bytes.assign(buffer, buffer + 16);
      else return Fail(where, "not an IPv4 or IPv6 address");
    } else if (entry.IsObject() && entry.HasMember("raw") && entry["raw"].IsArray()) {
      // Deliberately odd blocks (6 bytes, empty) for edge cases.
      for (const Value& byte : entry["raw"].GetArray()) {
        if (!byte.IsUint() || byte.GetUint() > 255) return Fail(where, "raw bytes are 0..255");
        bytes.push_back(static_cast<uint8_t>(byte.GetUint()));
      }
    } else {
      return Fail(where, "must be an address text or {\"raw\":[...]}");
    }
    profile_.values.SetRaw({0xE108, slot, 0}, bytes);
  }
  return true;
}

// Records of the log block: 16-bit length (header included), a spare byte,
// the severity, the 16-bit code, two spare bytes, the 32-bit time, four spare
// bytes, then the NUL-terminated message.
bool ProfileReader::ReadEventLog(const Value& list) {
  if (!list.IsArray()) return Fail("eventLog", "must be an array");
  std::vector<uint8_t> block;
  for (uint32_t i = 0; i < list.Size(); ++i) {
    const Value& entry = list[i];
    std::string where = "eventLog[" + std::to_string(i) + "]";
    if (!OnlyKeys(entry, where, {"severity", "code", "time", "message"})) return false;
    uint64_t severity = 0, code = 0;
    if (!entry.HasMember("severity") || !entry.HasMember("code")) return Fail(where, "needs \"severity\" and \"code\"");
    if (!Number(entry["severity"], where + ".severity", severity) || !Number(entry["code"], where + ".code", code))
      return false;
    if (severity > 255 || code > 0xFFFF) return Fail(where, "severity is a byte, code 16 bits");
    int64_t time = 0;
    if (entry.HasMember("time")) {
      if (!entry["time"].IsInt64()) return Fail(where + ".time", "must be a number of seconds");
      time = entry["time"].GetInt64();
      if (time < INT32_MIN || time > INT32_MAX) return Fail(where + ".time", "must fit 32 bits");
    }
    std::string message;
    if (entry.HasMember("message")) {
      if (!entry["message"].IsString()) return Fail(where + ".message", "must be a string");
      message = entry["message"].GetString();
    }
    size_t length = 16 + message.size() + 1;
    if (length > 0xFFFF) return Fail(where + ".message", "too long for one record");
    uint32_t time32 = static_cast<uint32_t>(static_cast<int32_t>(time));
    uint8_t header[16] = {uint8_t(length & 0xFF), uint8_t(length >> 8), 0, uint8_t(severity),
                          uint8_t(code & 0xFF),   uint8_t(code >> 8),   0, 0,
                          uint8_t(time32),        uint8_t(time32 >> 8), uint8_t(time32 >> 16), uint8_t(time32 >> 24),
                          0,                      0,                    0, 0};
    block.insert(block.end(), header, header + 16);
    block.insert(block.end(), message.begin(), message.end());
    block.push_back(0);
  }
  profile_.values.SetRaw({0x0B10, 0, 0}, block);
  return true;
}

bool ProfileReader::ReadAddress(const Value& entry, const std::string& where, Address& at) {
  uint32_t* parts[] = {&at.oc, &at.oe, &at.oi};
  const char* names[] = {"OC", "OE", "OI"};
  for (int i = 0; i < 3; ++i) {
    auto member = entry.FindMember(names[i]);
    if (member == entry.MemberEnd()) {
      if (i == 0) return Fail(where, "needs \"OC\"");
      continue;  // absent OE/OI mean 0, as on the wire
    }
    uint64_t value = 0;
    if (!Number(member->value, where + "." + names[i], value)) return false;
    if (value > 0xFFFFFFFFu) return Fail(where + "." + names[i], "must fit 32 bits");
    *parts[i] = static_cast<uint32_t>(value);
  }
  return true;
}

bool ProfileReader::ReadEvents(const Value& list) {
  if (!list.IsArray()) return Fail("events", "must be an array");
  for (uint32_t i = 0; i < list.Size(); ++i) {
    std::string where = "events[" + std::to_string(i) + "]";
    // A whole record (a capture keeps events with several commands that way).
    if (list[i].IsObject() && list[i].HasMember("SIP")) {
      profile_.events.push_back(Compact(list[i]));
      continue;
    }
    if (!list[i].IsObject() || !list[i].HasMember("OC")) return Fail(where, "must be a command object with \"OC\"");
    // Hex texts are for the profile's reader; the wire carries numbers.
    rapidjson::Document command;
    command.CopyFrom(list[i], command.GetAllocator());
    for (const char* name : {"OC", "OE", "OI", "CA", "ST"}) {
      if (!command.HasMember(name) || !command[name].IsString()) continue;
      uint64_t number = 0;
      if (!Number(command[name], where + "." + name, number)) return false;
      command[name].SetUint64(number);
    }
    profile_.events.push_back("{\"SIP\":{\"V\":1,\"CMD\":[" + Compact(command) + "]}}");
  }
  return true;
}

bool ProfileReader::ReadOverrides(const Value& list) {
  if (!list.IsArray()) return Fail("overrides", "must be an array");
  for (uint32_t i = 0; i < list.Size(); ++i) {
    const Value& entry = list[i];
    std::string where = "overrides[" + std::to_string(i) + "]";
    if (!OnlyKeys(entry, where, {"OC", "OE", "OI", "ST", "DA", "remove", "answers"})) return false;
    Address at;
    if (!ReadAddress(entry, where, at)) return false;
    if (entry.HasMember("remove") && entry["remove"].IsTrue()) {
      profile_.values.Erase(at);
      continue;
    }
    auto answers = entry.FindMember("answers");
    if (answers == entry.MemberEnd()) {
      AgentValue value;
      if (!ReadAnswer(entry, where, value)) return false;
      profile_.values.Set(at, value.status, value.data);
      continue;
    }
    if (entry.HasMember("ST") || entry.HasMember("DA")) return Fail(where, "\"answers\" replaces \"ST\" and \"DA\"");
    if (!answers->value.IsArray() || answers->value.Empty()) return Fail(where + ".answers", "must be a non-empty array");
    std::vector<AgentValue> values(answers->value.Size());
    for (uint32_t a = 0; a < answers->value.Size(); ++a) {
      std::string answerWhere = where + ".answers[" + std::to_string(a) + "]";
      if (!OnlyKeys(answers->value[a], answerWhere, {"ST", "DA"}) ||
          !ReadAnswer(answers->value[a], answerWhere, values[a]))
        return false;
    }
    profile_.values.SetAnswers(at, values);
  }
  return true;
}

// "ST" (default 0) and "DA" (none when absent) of one reply.
bool ProfileReader::ReadAnswer(const Value& entry, const std::string& where, AgentValue& value) {
  uint64_t status = 0;
  if (entry.HasMember("ST") && !Number(entry["ST"], where + ".ST", status)) return false;
  auto data = entry.FindMember("DA");
  value.status = static_cast<unsigned>(status);
  value.data = data == entry.MemberEnd() ? "" : Compact(data->value);
  return true;
}

bool ProfileReader::Read(const Value& root) {
  if (!OnlyKeys(root, "profile",
                {"description", "cabinet", "unknownStatus", "system", "fans", "temperatureSensors", "powerSupplies",
                 "voltages", "memoryModules", "processors", "pciSlots", "raid", "driverMonitor", "overall",
                 "ipAddresses", "eventLog", "events", "overrides"}))
    return false;
  uint64_t number = 0;
  if (root.HasMember("cabinet")) {
    if (!Number(root["cabinet"], "cabinet", number)) return false;
    profile_.cabinet = static_cast<unsigned>(number);
  }
  profile_.values.SetNumber({kCabinetOc, 0, 0}, profile_.cabinet);
  if (root.HasMember("unknownStatus")) {
    if (!Number(root["unknownStatus"], "unknownStatus", number)) return false;
    profile_.unknownStatus = static_cast<unsigned>(number);
  }
  if (root.HasMember("system") && !ReadSystem(root["system"])) return false;

  static const std::vector<Field> kFans = {{"designation", Kind::kString, 0x0304},
                                           {"status", Kind::kNumber, 0x0301},
                                           {"type", Kind::kNumber, 0x0303},
                                           {"rpm", Kind::kNumber, 0x0302}};
  static const std::vector<Field> kTemperatures = {{"designation", Kind::kString, 0x0404},
                                                   {"status", Kind::kNumber, 0x0401},
                                                   {"type", Kind::kNumber, 0x0403},
                                                   {"celsius", Kind::kNumber, 0x0402}};
  static const std::vector<Field> kPowerSupplies = {{"designation", Kind::kString, 0x0504},
                                                    {"status", Kind::kNumber, 0x0501},
                                                    {"currentWatts", Kind::kNumber, 0x0506},
                                                    {"nominalWatts", Kind::kNumber, 0x0507}};
  static const std::vector<Field> kVoltages = {{"designation", Kind::kString, 0x0522},
                                               {"status", Kind::kNumber, 0x0521},
                                               {"current", Kind::kNumber, 0x0524}};
  static const std::vector<Field> kMemory = {{"socket", Kind::kString, 0x0702},
                                             {"status", Kind::kNumber, 0x0701},
                                             {"sizeMB", Kind::kNumber, 0x070A},
                                             {"type", Kind::kString, 0x070B},
                                             {"subtype", Kind::kString, 0x070D}};
  static const std::vector<Field> kProcessors = {{"socket", Kind::kString, 0x0602},
                                                 {"status", Kind::kNumber, 0x0601},
                                                 {"type", Kind::kString, 0x0605},
                                                 {"mhz", Kind::kNumber, 0x061D}};
  static const std::vector<Field> kDriverMonitor = {{"designation", Kind::kString, 0x1803},
                                                    {"location", Kind::kString, 0x1804},
                                                    {"class", Kind::kNumber, 0x1805},
                                                    {"status", Kind::kNumber, kDrvMonStatusOc}};
  auto voltageLimits = [this](const Value& entry, uint32_t index, const std::string& where) {
    return ReadVoltageLimits(entry, index, where);
  };
  if (!ReadList(root, "fans", "", {0x0300, 0, 0}, 0, kFans) ||
      !ReadList(root, "temperatureSensors", "", {0x0400, 0, 0}, 0, kTemperatures) ||
      !ReadList(root, "powerSupplies", "", {0x0500, 0, 0}, 0, kPowerSupplies) ||
      !ReadList(root, "voltages", "", {0x0520, 0, 0}, 0, kVoltages, {"min", "max"}, voltageLimits) ||
      !ReadList(root, "memoryModules", "", {0x0700, 0, 0}, 0, kMemory) ||
      !ReadList(root, "processors", "", {0x0600, 0, 0}, 0, kProcessors) ||
      !ReadList(root, "driverMonitor", "", {0x1800, 0, 0}, 0, kDriverMonitor))
    return false;
  // PCI slot values live under sub-index 0x28, their count does not.
  static const std::vector<Field> kPciSlots = {{"designation", Kind::kString, 0x1043}, {"status", Kind::kNumber, 0x1042}};
  if (!ReadList(root, "pciSlots", "", {0x1480, 0, 0}, 0x28, kPciSlots)) return false;
  if (root.HasMember("raid")) {
    if (!ReadRaid(root["raid"])) return false;
  } else {
    profile_.values.SetNumber({0x2110, 0, 0}, 0);
  }
  if (root.HasMember("overall") && !ReadOverall(root["overall"])) return false;
  if (root.HasMember("ipAddresses") && !ReadIpAddresses(root["ipAddresses"])) return false;
  if (root.HasMember("eventLog") && !ReadEventLog(root["eventLog"])) return false;
  if (root.HasMember("events") && !ReadEvents(root["events"])) return false;
  // Overrides come last so they win over everything above.
  if (root.HasMember("overrides") && !ReadOverrides(root["overrides"])) return false;
  return true;
}

}  // namespace

bool Profile::Parse(const std::string& jsonText, Profile& profile, std::string& error) {
  rapidjson::Document document;
  document.Parse(jsonText.c_str(), jsonText.size());
  if (document.HasParseError()) {
    error = std::string("JSON error at offset ") + std::to_string(document.GetErrorOffset()) + ": " +
            rapidjson::GetParseError_En(document.GetParseError());
    return false;
  }
  return ProfileReader(profile, error).Read(document);
}

bool Profile::Load(const std::string& path, Profile& profile, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = "cannot open " + path;
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (!Parse(text.str(), profile, error)) {
    error = path + ": " + error;
    return false;
  }
  return true;
}

}  // namespace agentsim
