#include "agent/SipJson.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "runtime/CStringMapper.h"
#include "runtime/LittleEndian.h"

namespace {

using Value = SipJson::GenericValue;
using Document = SipJson::GenericDocument;

// Statuses of a reply that may still carry data.
constexpr unsigned kDataStatuses[] = {SipJson::kStatusOk, 12, 21, 255};

// Forwards SAX events to the document and stops the parse once containers
// nest deeper than the limit, so nothing deeper ever reaches the DOM.
class DepthLimitedHandler {
 public:
  DepthLimitedHandler(Document& doc, unsigned maxDepth) : m_Doc(doc), m_MaxDepth(maxDepth) {}

  bool Null() { return m_Doc.Null(); }
  bool Bool(bool b) { return m_Doc.Bool(b); }
  bool Int(int i) { return m_Doc.Int(i); }
  bool Uint(unsigned u) { return m_Doc.Uint(u); }
  bool Int64(int64_t i) { return m_Doc.Int64(i); }
  bool Uint64(uint64_t u) { return m_Doc.Uint64(u); }
  // The reader turns some out-of-range numbers (7e309) into infinity without
  // an error; the writer cannot write that back, so the next request sent
  // from this record would be cut off. Such a reply is refused like any
  // other unreadable one.
  bool Double(double d) { return std::isfinite(d) && m_Doc.Double(d); }
  bool RawNumber(const char* str, rapidjson::SizeType length, bool copy) { return m_Doc.RawNumber(str, length, copy); }
  bool String(const char* str, rapidjson::SizeType length, bool copy) { return m_Doc.String(str, length, copy); }
  bool Key(const char* str, rapidjson::SizeType length, bool copy) { return m_Doc.Key(str, length, copy); }
  bool StartObject() { return Enter() && m_Doc.StartObject(); }
  bool EndObject(rapidjson::SizeType count) { --m_Depth; return m_Doc.EndObject(count); }
  bool StartArray() { return Enter() && m_Doc.StartArray(); }
  bool EndArray(rapidjson::SizeType count) { --m_Depth; return m_Doc.EndArray(count); }

 private:
  bool Enter() { return ++m_Depth <= m_MaxDepth; }

  Document& m_Doc;
  unsigned m_MaxDepth;
  unsigned m_Depth = 0;
};

// Low byte of a byte-array element; non-integers read as 0.
unsigned char LowByte(const Value& v) {
  if (v.IsUint64()) return static_cast<unsigned char>(v.GetUint64() & 0xFF);
  if (v.IsInt64()) return static_cast<unsigned char>(static_cast<uint64_t>(v.GetInt64()) & 0xFF);
  return 0;
}

// Low 32 bits of any number; 0 for values a 64-bit integer cannot hold.
unsigned Low32(const Value& v) {
  if (v.IsUint64()) return static_cast<unsigned>(v.GetUint64());
  if (v.IsInt64()) return static_cast<unsigned>(static_cast<uint64_t>(v.GetInt64()));
  if (v.IsDouble()) {
    const double d = v.GetDouble();
    if (d >= 0 && d < 18446744073709551616.0) return static_cast<unsigned>(static_cast<uint64_t>(d));
    if (d < 0 && d >= -9223372036854775808.0) return static_cast<unsigned>(static_cast<uint64_t>(static_cast<int64_t>(d)));
  }
  return 0;
}

// Fewest of 1, 2, 4 or 8 bytes that hold the value.
size_t WidthOf(uint64_t v) {
  if (v > 0xFFFFFFFFull) return 8;
  if (v > 0xFFFF) return 4;
  if (v > 0xFF) return 2;
  return 1;
}

const Value* FindMember(const Value& object, const char* name) {
  if (!object.IsObject()) return nullptr;
  auto it = object.FindMember(name);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

// The "RAW" array of an object-typed "DA", or null.
const Value* RawArray(const Value& da) {
  const Value* raw = FindMember(da, "RAW");
  return raw != nullptr && raw->IsArray() ? raw : nullptr;
}

void AppendUtf8WithNul(std::vector<unsigned char>& out, const char* text) {
  const std::string utf8 = CStringMapper::StringToUTF8(text);
  out.insert(out.end(), utf8.begin(), utf8.end());
  out.push_back(0);
}

}  // namespace

SipJson::SipJson() : m_Doc(rapidjson::kObjectType) { JsonInit(); }

SipJson::~SipJson() = default;

const SipJson::GenericValue& SipJson::Null() {
  static const GenericValue kNull;
  return kNull;
}

void SipJson::JsonInit() {
  Allocator& alloc = m_Doc.GetAllocator();
  GenericValue sip(rapidjson::kObjectType);
  sip.AddMember("V", GenericValue(1u), alloc);
  sip.AddMember("CMD", GenericValue(rapidjson::kArrayType), alloc);
  m_Doc.SetObject();
  m_Doc.AddMember("SIP", sip, alloc);
}

SipJson::GenericValue& SipJson::GetCmd() {
  Allocator& alloc = m_Doc.GetAllocator();
  if (!m_Doc.IsObject()) JsonInit();
  auto sip = m_Doc.FindMember("SIP");
  if (sip == m_Doc.MemberEnd() || !sip->value.IsObject()) {
    JsonInit();
    sip = m_Doc.FindMember("SIP");
  }
  auto cmd = sip->value.FindMember("CMD");
  if (cmd == sip->value.MemberEnd()) {
    sip->value.AddMember("CMD", GenericValue(rapidjson::kArrayType), alloc);
    cmd = sip->value.FindMember("CMD");
  } else if (!cmd->value.IsArray()) {
    cmd->value.SetArray();
  }
  GenericValue& list = cmd->value;
  const rapidjson::SizeType index = static_cast<rapidjson::SizeType>(m_CmdIndex);
  while (list.Size() <= index) list.PushBack(GenericValue(rapidjson::kObjectType), alloc);
  // A reply may have left a non-object here; a command must be an object.
  if (!list[index].IsObject()) list[index].SetObject();
  return list[index];
}

bool SipJson::SetCmdElemValue(GenericValue& cmd, const char* name, unsigned value, bool removeIfZero) {
  if (!cmd.IsObject() || name == nullptr) return false;
  auto it = cmd.FindMember(name);
  if (value == 0 && removeIfZero) {
    // RemoveMember moves the last member into the gap; requests go out in
    // that order.
    if (it != cmd.MemberEnd()) cmd.RemoveMember(it);
    return true;
  }
  if (it != cmd.MemberEnd()) {
    it->value.SetUint(value);
  } else {
    // The allocator is stateless, so a local instance frees and allocates
    // the same memory as the document's own.
    Allocator alloc;
    cmd.AddMember(GenericValue(name, alloc), GenericValue(value), alloc);
  }
  return true;
}

const SipJson::GenericValue* SipJson::FindCmd(int cmd) const {
  if (cmd < 0) return nullptr;
  const GenericValue* sip = FindMember(m_Doc, "SIP");
  if (sip == nullptr) return nullptr;
  const GenericValue* list = FindMember(*sip, "CMD");
  if (list == nullptr || !list->IsArray() || list->Size() <= static_cast<rapidjson::SizeType>(cmd)) return nullptr;
  const GenericValue& element = (*list)[static_cast<rapidjson::SizeType>(cmd)];
  return element.IsObject() ? &element : nullptr;
}

const SipJson::GenericValue* SipJson::FindCmdMember(int cmd, const char* name) const {
  const GenericValue* element = FindCmd(cmd);
  return element == nullptr ? nullptr : FindMember(*element, name);
}

int SipJson::GetCmdDataType(int cmd) const {
  const GenericValue* da = FindCmdMember(cmd, "DA");
  return da == nullptr ? 0 : static_cast<int>(da->GetType());
}

size_t SipJson::GetCmdDataSize(int cmd) const {
  const GenericValue* da = FindCmdMember(cmd, "DA");
  if (da == nullptr) return 0;
  switch (da->GetType()) {
    case rapidjson::kObjectType: {
      const GenericValue* raw = RawArray(*da);
      return raw == nullptr ? 0 : raw->Size();
    }
    case rapidjson::kStringType:
      return std::strlen(da->GetString()) + 1;
    case rapidjson::kArrayType: {
      if (da->Empty()) return 0;
      size_t size = 0;
      if ((*da)[0].IsString()) {
        for (const GenericValue& s : da->GetArray())
          if (s.IsString()) size += std::strlen(s.GetString()) + 1;
        return size + 1;
      }
      for (const GenericValue& n : da->GetArray()) {
        if (!n.IsNumber()) continue;
        size += n.IsUint64() ? WidthOf(n.GetUint64()) : 8;
      }
      return size;
    }
    case rapidjson::kNumberType:
      if (da->IsDouble()) return 0;
      if (da->IsInt64() || da->IsUint64()) return 8;
      return 4;
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      return 1;
    default:
      return 0;
  }
}

bool SipJson::GetCmdDataStream(int cmd, std::vector<unsigned char>& out) const {
  const GenericValue* da = FindCmdMember(cmd, "DA");
  if (da == nullptr) return false;
  switch (da->GetType()) {
    case rapidjson::kObjectType: {
      out.clear();
      const GenericValue* raw = RawArray(*da);
      if (raw == nullptr || raw->Empty() || !(*raw)[0].IsUint()) return true;
      out.reserve(raw->Size());
      for (const GenericValue& b : raw->GetArray()) out.push_back(LowByte(b));
      return true;
    }
    case rapidjson::kStringType:
      out.clear();
      AppendUtf8WithNul(out, da->GetString());
      return true;
    case rapidjson::kArrayType:
      out.clear();
      if (da->Empty() || !(*da)[0].IsString()) return true;
      for (const GenericValue& s : da->GetArray())
        if (s.IsString()) AppendUtf8WithNul(out, s.GetString());
      out.push_back(0);
      return true;
    case rapidjson::kNumberType: {
      out.clear();
      if (!da->IsUint() && !da->IsUint64()) return false;
      const uint64_t v = da->GetUint64();
      unsigned char bytes[sizeof v];
      const size_t width = WidthOf(v);
      LittleEndian::Write(v, width, bytes);
      out.assign(bytes, bytes + width);
      return true;
    }
    default:
      return false;
  }
}

bool SipJson::GetCmdUIntData(int cmd, unsigned& out) const {
  const GenericValue* da = FindCmdMember(cmd, "DA");
  if (da == nullptr) return false;
  switch (da->GetType()) {
    case rapidjson::kObjectType: {
      const GenericValue* raw = RawArray(*da);
      if (raw == nullptr || raw->Empty()) return false;
      if (raw->Size() == 1) {
        out = Low32((*raw)[0]);
        return true;
      }
      // Two bytes, or four: a block of three reads as four, the fourth zero.
      unsigned char bytes[4] = {};
      for (rapidjson::SizeType i = 0; i < raw->Size() && i < 4; ++i) bytes[i] = LowByte((*raw)[i]);
      out = LittleEndian::Read32(bytes);
      return true;
    }
    case rapidjson::kFalseType:
      out = 0;
      return true;
    case rapidjson::kTrueType:
      out = 1;
      return true;
    case rapidjson::kNumberType:
      if (da->IsInt()) {
        out = static_cast<unsigned>(da->GetInt());
        return true;
      }
      if (da->IsUint()) {
        out = da->GetUint();
        return true;
      }
      return false;
    default:
      return false;
  }
}

bool SipJson::GetCmdDataString(int cmd, std::string& out, size_t offset) const {
  const GenericValue* da = FindCmdMember(cmd, "DA");
  if (da == nullptr) return false;
  switch (da->GetType()) {
    case rapidjson::kStringType:
      if (offset != 0) return false;
      return CStringMapper::UTF8ToString(out, da->GetString());
    case rapidjson::kNullType:
      out.clear();
      return true;
    case rapidjson::kObjectType: {
      out.clear();
      const GenericValue* raw = FindMember(*da, "RAW");
      if (raw == nullptr || !raw->IsArray() || raw->Size() <= offset || !(*raw)[0].IsUint()) return false;
      std::string bytes;
      bytes.reserve(raw->Size() - offset);
      for (auto it = raw->Begin() + offset; it != raw->End(); ++it) bytes.push_back(static_cast<char>(LowByte(*it)));
      return CStringMapper::UTF8ToString(out, bytes.c_str());
    }
    default:
      return false;
  }
}

unsigned SipJson::GetCmdElemValue(int cmd, const char* name, unsigned dflt) const {
  const GenericValue* member = FindCmdMember(cmd, name);
  if (member == nullptr) return dflt;
  if (member->IsNumber()) return Low32(*member);
  if (!member->IsString()) return dflt;
  const char* s = member->GetString();
  // A short "0x" has nothing after its marker, which reads 0 in either base.
  unsigned long value;
  if (s[0] != '0') {
    value = std::strtoul(s, nullptr, 10);
  } else if (s[1] == 'x' || s[1] == 'X') {
    value = std::strtoul(s + 2, nullptr, 16);
  } else {
    value = std::strtoul(s + 1, nullptr, 8);
  }
  return static_cast<unsigned>(value);
}

bool SipJson::HasReplyData() const {
  const unsigned status = GetCmdElemValue(m_CmdIndex, "ST", kStatusAbsent);
  if (std::find(std::begin(kDataStatuses), std::end(kDataStatuses), status) == std::end(kDataStatuses)) return false;
  const int type = GetCmdDataType(m_CmdIndex);
  if (type < rapidjson::kStringType) return type != rapidjson::kNullType;
  if (type == rapidjson::kNumberType) return true;
  return GetCmdDataSize(m_CmdIndex) != 0;
}

void SipJson::Serialize(std::string& out) const {
  rapidjson::GenericStringBuffer<Encoding, Allocator> buffer;
  rapidjson::Writer<decltype(buffer), Encoding, Encoding, Allocator> writer(buffer);
  m_Doc.Accept(writer);
  out.assign(buffer.GetString(), buffer.GetSize());
}

std::string SipJson::Serialize() const {
  std::string out;
  Serialize(out);
  return out;
}

bool SipJson::ParseReply(const char* text, size_t length) {
  if (text == nullptr) length = 0;
  rapidjson::MemoryStream stream(text != nullptr ? text : "", length);
  rapidjson::ParseResult result;
  auto generate = [&](GenericDocument& doc) {
    // Iterative parsing: a deeply nested text must not exhaust the stack.
    rapidjson::GenericReader<Encoding, Encoding, Allocator> reader;
    DepthLimitedHandler handler(doc, kMaxDepth);
    result = reader.Parse<rapidjson::kParseIterativeFlag>(stream, handler);
    return !result.IsError();
  };
  m_Doc.Populate(generate);
  m_ParseError = static_cast<int>(result.Code());
  if (result.IsError()) {
    JsonInit();
    return false;
  }
  const GenericValue* sip = FindMember(m_Doc, "SIP");
  const GenericValue* version = sip != nullptr ? FindMember(*sip, "V") : nullptr;
  if (version == nullptr || !version->IsUint64() || version->GetUint64() != 1) {
    JsonInit();
    return false;
  }
  return true;
}
