#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <rapidjson/allocators.h>
#include <rapidjson/document.h>
#include <rapidjson/encodings.h>

// One command record of the agent protocol:
//   {"SIP":{"V":1,"CMD":[{"OC":..,"OE":..,"OI":..,"CA":..,"ST":..,"DA":..}]}}
// The same record is filled as a request, overwritten in place by the reply
// and read back through the typed getters below. Getters never throw and
// never add members: a missing path yields the getter's failure value.
class SipJson {
 public:
  using Encoding = rapidjson::UTF8<char>;
  using Allocator = rapidjson::CrtAllocator;
  using GenericValue = rapidjson::GenericValue<Encoding, Allocator>;
  using GenericDocument = rapidjson::GenericDocument<Encoding, Allocator, Allocator>;

  // Replies nested deeper than this are refused as a whole: the document
  // model destroys and serialises recursively, so depth must stay bounded.
  static constexpr unsigned kMaxDepth = 128;

  // "ST" of a reply: 0 for success; a command without one reads as 22.
  static constexpr unsigned kStatusOk = 0;
  static constexpr unsigned kStatusAbsent = 22;

  SipJson();
  ~SipJson();
  SipJson(const SipJson&) = delete;
  SipJson& operator=(const SipJson&) = delete;

  // Resets the document to {"SIP":{"V":1,"CMD":[]}}.
  void JsonInit();

  // "SIP"."CMD"[current index]; pads "CMD" with empty objects as needed and
  // rebuilds the envelope when it is missing or of the wrong type.
  GenericValue& GetCmd();

  // Sets (or, for 0 with removeIfZero, removes) an unsigned member.
  static bool SetCmdElemValue(GenericValue& cmd, const char* name, unsigned value, bool removeIfZero);

  // JSON type of "DA" as a rapidjson::Type: 0 null/missing, 1 false,
  // 2 true, 3 object, 4 array, 5 string, 6 number.
  int GetCmdDataType(int cmd) const;
  size_t GetCmdDataSize(int cmd) const;
  bool GetCmdDataStream(int cmd, std::vector<unsigned char>& out) const;
  bool GetCmdUIntData(int cmd, unsigned& out) const;
  bool GetCmdDataString(int cmd, std::string& out, size_t offset) const;
  unsigned GetCmdElemValue(int cmd, const char* name, unsigned dflt) const;
  bool HasReplyData() const;

  int GetCmdIndex() const { return m_CmdIndex; }
  void SetCmdIndex(int index) { m_CmdIndex = index < 0 ? 0 : index; }

  // Command `cmd` as an object, or null when the path "SIP"/"CMD"/[cmd] is
  // incomplete. For callers that must look at the raw reply shape.
  const GenericValue* FindCmd(int cmd) const;
  // Member `name` of command `cmd`, or null.
  const GenericValue* FindCmdMember(int cmd, const char* name) const;

  GenericDocument& Document() { return m_Doc; }
  const GenericDocument& Document() const { return m_Doc; }

  // Compact text of the whole document (no whitespace).
  std::string Serialize() const;
  void Serialize(std::string& out) const;

  // Replaces the document with the reply `text` of `length` bytes. The
  // reply is kept only when it parses, is not nested too deeply, its root
  // is an object, "SIP" is an object and "SIP"."V" is 1; otherwise the
  // record is reset with JsonInit. Returns whether the reply was kept.
  bool ParseReply(const char* text, size_t length);
  bool ParseReply(const std::string& text) { return ParseReply(text.data(), text.size()); }

  // Error code of the last parse (0 = none).
  int GetParseError() const { return m_ParseError; }

  // The shared null returned for every missing member.
  static const GenericValue& Null();

 private:
  GenericDocument m_Doc;
  int m_ParseError = 0;
  int m_CmdIndex = 0;
};
