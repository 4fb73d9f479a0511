#include "Redactor.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include "Profile.h"
#include "ProfileWriter.h"

namespace agentsim {

namespace {

using rapidjson::Value;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kHostNameOc = 0xE107;
constexpr uint32_t kIpAddressOc = 0xE108;
constexpr uint32_t kEventLogOc = 0x0B10;
constexpr size_t kRecordHeader = 16;

// The identity values of the system page, by profile member and by address.
const char* const kIdentityMembers[] = {"serialNumber",      "chassisId",        "assetTag", "uuid",
                                        "boardSerialNumber", "boardIdentNumber", "hostName"};
const struct {
  uint32_t oc, oe;
} kIdentityAddresses[] = {{0x0C00, 0x0600}, {0x0C00, 0x0108}, {0xE001, 0x0210}, {0x0C00, 0x1510},
                          {0x0C00, 0x0200}, {0x0C00, 0x0201}, {kHostNameOc, 0}};

bool IsIdentity(const Address& at) {
  for (const auto& identity : kIdentityAddresses)
    if (at.oc == identity.oc && at.oe == identity.oe) return true;
  return false;
}

uint32_t AddressPart(const Value& command, const char* name) {
  auto member = command.FindMember(name);
  uint32_t value = 0;
  if (member == command.MemberEnd()) return 0;
  if (member->value.IsUint()) return member->value.GetUint();
  return member->value.IsString() && ParseUnsigned(member->value.GetString(), value) ? value : 0;
}

// The bytes of {"RAW":[...]} (or {"raw":[...]}); false for anything else.
bool RawBytes(const Value& data, const char* key, Bytes& bytes) {
  if (!data.IsObject() || !data.HasMember(key) || !data[key].IsArray()) return false;
  bytes.clear();
  for (const Value& byte : data[key].GetArray()) {
    if (!byte.IsUint() || byte.GetUint() > 255) return false;
    bytes.push_back(static_cast<uint8_t>(byte.GetUint()));
  }
  return true;
}

void SetRawBytes(Value& data, const char* key, const Bytes& bytes, Value::AllocatorType& allocator) {
  Value list(rapidjson::kArrayType);
  for (uint8_t byte : bytes) list.PushBack(unsigned(byte), allocator);
  data[key] = list;
}

std::string IpText(const Bytes& bytes) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof(text));
  return text;
}

bool IsAddress(const Bytes& bytes) { return bytes.size() == 4 || bytes.size() == 16; }

class Redactor {
 public:
  explicit Redactor(rapidjson::Document& profile) : profile_(profile), allocator_(profile.GetAllocator()) {}

  void Run() {
    Walk(false);
    AssignPlaceholders();
    Walk(true);
    RewriteStrings(profile_);
  }

 private:
  // Both passes go over the same places in the same order: the first one
  // collects the originals, the second one replaces them.
  void Walk(bool rewrite) {
    auto system = profile_.FindMember("system");
    if (system != profile_.MemberEnd() && system->value.IsObject())
      for (const char* key : kIdentityMembers) {
        auto member = system->value.FindMember(key);
        if (member != system->value.MemberEnd() && member->value.IsString() && !rewrite)
          AddText(member->value.GetString(), std::string(key) == "hostName");
      }
    auto addresses = profile_.FindMember("ipAddresses");
    if (addresses != profile_.MemberEnd() && addresses->value.IsArray())
      for (Value& entry : addresses->value.GetArray()) {
        Bytes bytes(16);
        if (entry.IsString() && !rewrite) {
          if (inet_pton(AF_INET, entry.GetString(), bytes.data()) == 1) bytes.resize(4);
          else if (inet_pton(AF_INET6, entry.GetString(), bytes.data()) != 1) continue;
          AddAddress(bytes, entry.GetString());
        } else if (RawBytes(entry, "raw", bytes)) {
          IdentityBlock(entry, "raw", bytes, rewrite);
        }
      }
    for (const char* list : {"overrides", "events"}) {
      auto member = profile_.FindMember(list);
      if (member == profile_.MemberEnd() || !member->value.IsArray()) continue;
      for (Value& entry : member->value.GetArray()) {
        if (!entry.IsObject()) continue;
        // An event may be a whole record.
        auto sip = entry.FindMember("SIP");
        if (sip == entry.MemberEnd()) {
          Command(entry, rewrite);
        } else if (sip->value.IsObject() && sip->value.HasMember("CMD") && sip->value["CMD"].IsArray()) {
          for (Value& command : sip->value["CMD"].GetArray())
            if (command.IsObject()) Command(command, rewrite);
        }
      }
    }
  }

  // A command's "DA", and the "DA" of each of its answers.
  void Command(Value& command, bool rewrite) {
    const Address at{AddressPart(command, "OC"), AddressPart(command, "OE"), AddressPart(command, "OI")};
    std::vector<Value*> data;
    if (command.HasMember("DA")) data.push_back(&command["DA"]);
    if (command.HasMember("answers") && command["answers"].IsArray())
      for (Value& answer : command["answers"].GetArray())
        if (answer.IsObject() && answer.HasMember("DA")) data.push_back(&answer["DA"]);
    for (Value* da : data) {
      Bytes bytes;
      const bool raw = RawBytes(*da, "RAW", bytes);
      if (at.oc == kIpAddressOc && raw) {
        IdentityBlock(*da, "RAW", bytes, rewrite);
      } else if (!rewrite && IsIdentity(at)) {
        if (da->IsString()) AddText(da->GetString(), at.oc == kHostNameOc);
        // A text as a block: up to its NUL.
        if (raw) AddText(std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)), at.oc == kHostNameOc);
      } else if (rewrite && raw) {
        SetRawBytes(*da, "RAW", at.oc == kEventLogOc ? EventLog(bytes) : Replaced(bytes, IsIdentity(at)), allocator_);
      }
    }
  }

  // An address block: an address gets its placeholder, anything else
  // (a block of another length) is blanked.
  void IdentityBlock(Value& data, const char* key, const Bytes& bytes, bool rewrite) {
    if (!rewrite) {
      if (IsAddress(bytes)) AddAddress(bytes, "");
      return;
    }
    auto placeholder = addresses_.find(bytes);
    SetRawBytes(data, key, placeholder != addresses_.end() ? placeholder->second : Bytes(bytes.size(), 0), allocator_);
  }

  void AddText(const std::string& original, bool hostName) {
    // Without a letter or digit there is nothing to give away (or to mask).
    if (std::none_of(original.begin(), original.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); }) ||
        texts_.count(original))
      return;
    texts_[original];
    textOrder_.push_back(original);
    // The short name stands alone in messages often enough.
    const size_t dot = original.find('.');
    if (hostName && dot != std::string::npos && dot >= 4) shortNames_.emplace_back(original, dot);
  }

  void AddAddress(const Bytes& bytes, const std::string& written) {
    if (!addresses_.count(bytes)) {
      addresses_[bytes];
      addressOrder_.push_back(bytes);
    }
    if (!written.empty() && written != IpText(bytes)) writtenForms_.emplace_back(written, bytes);
  }

  // Placeholders are numbered in the order the originals were found, and
  // never equal any original.
  void AssignPlaceholders() {
    std::set<std::string> originals(textOrder_.begin(), textOrder_.end());
    unsigned number = 0;
    for (const std::string& original : textOrder_) {
      std::string placeholder;
      for (int tries = 0; tries < 1000 && (placeholder.empty() || originals.count(placeholder)); ++tries)
        placeholder = Mask(original, ++number);
      texts_[original] = placeholder;
    }
    for (const auto& [host, dot] : shortNames_)
      if (!texts_.count(host.substr(0, dot))) texts_[host.substr(0, dot)] = texts_[host].substr(0, dot);

    std::set<Bytes> taken(addressOrder_.begin(), addressOrder_.end());
    unsigned v4 = 0, v6 = 0;
    for (const Bytes& original : addressOrder_) {
      // Past 762 IPv4 addresses the documentation networks repeat.
      Bytes placeholder;
      for (int tries = 0; tries < 1000 && (placeholder.empty() || taken.count(placeholder)); ++tries)
        placeholder = original.size() == 4 ? DocumentationV4(v4++) : DocumentationV6(++v6);
      taken.insert(placeholder);
      addresses_[original] = placeholder;
      texts_[IpText(original)] = IpText(placeholder);
    }
    for (const auto& [written, bytes] : writtenForms_) texts_[written] = IpText(addresses_[bytes]);
    // Searched longest first, so a host name goes before its short name.
    for (const auto& [original, placeholder] : texts_)
      if (original.size() >= kShortest) searched_.emplace_back(original, placeholder);
    std::stable_sort(searched_.begin(), searched_.end(),
                     [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
  }

  // Same length and punctuation; digits become 0 and letters x (all hex
  // digits 0 in a hex value such as a UUID), led by the number.
  static std::string Mask(const std::string& original, unsigned number) {
    const bool hex = std::all_of(original.begin(), original.end(),
                                 [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) || c == '-'; });
    std::string out = original, digits = std::to_string(number);
    size_t next = 0;
    for (char& c : out) {
      const unsigned char u = static_cast<unsigned char>(c);
      if (!std::isalnum(u) && u < 0x80) continue;
      c = std::isdigit(u) || hex ? '0' : std::isupper(u) ? 'X' : 'x';
      if (next < digits.size()) c = digits[next++];
    }
    return out;
  }

  // 192.0.2.0/24, 198.51.100.0/24 and 203.0.113.0/24: kept for documentation.
  static Bytes DocumentationV4(unsigned index) {
    static const uint8_t kNets[3][3] = {{192, 0, 2}, {198, 51, 100}, {203, 0, 113}};
    const uint8_t* net = kNets[(index / 254) % 3];
    return Bytes{net[0], net[1], net[2], static_cast<uint8_t>(index % 254 + 1)};
  }

  // 2001:db8::/32, kept for documentation.
  static Bytes DocumentationV6(unsigned number) {
    Bytes bytes(16, 0);
    bytes[0] = 0x20, bytes[1] = 0x01, bytes[2] = 0x0d, bytes[3] = 0xb8;
    for (int i = 0; i < 4; ++i) bytes[15 - i] = static_cast<uint8_t>(number >> (8 * i));
    return bytes;
  }

  // `text` with every original replaced; a whole text that is an original
  // (however short) too, unless `whole` is false.
  std::string Text(const std::string& text, bool whole = true) const {
    auto exact = texts_.find(text);
    if (whole && exact != texts_.end()) return exact->second;
    std::string out;
    for (size_t at = 0; at < text.size();) {
      auto found = std::find_if(searched_.begin(), searched_.end(),
                                [&](const auto& entry) { return text.compare(at, entry.first.size(), entry.first) == 0; });
      if (found == searched_.end()) {
        out += text[at++];
      } else {
        out += found->second;
        at += found->first.size();
      }
    }
    return out;
  }

  // A block as text. In an identity value's block each NUL-ended piece is a
  // text of its own; elsewhere short originals could be any bytes.
  Bytes Replaced(const Bytes& bytes, bool pieces = false) const {
    std::string text;
    for (auto at = bytes.begin(); at != bytes.end();) {
      const auto nul = pieces ? std::find(at, bytes.end(), 0) : bytes.end();
      text += Text(std::string(at, nul), pieces);
      if (nul != bytes.end()) text += '\0';
      at = nul == bytes.end() ? nul : nul + 1;
    }
    return Bytes(text.begin(), text.end());
  }

  // Log records carry their own length, so each message is rewritten on its
  // own and the length set to match (an address text may change length).
  Bytes EventLog(const Bytes& block) const {
    Bytes out;
    size_t at = 0;
    while (at < block.size()) {
      const size_t length = at + 1 < block.size() ? block[at] | block[at + 1] << 8 : 0;
      if (length < kRecordHeader || length > block.size() - at) {
        const Bytes rest = Replaced(Bytes(block.begin() + at, block.end()));  // not records: plain bytes
        out.insert(out.end(), rest.begin(), rest.end());
        break;
      }
      const auto message = block.begin() + at + kRecordHeader, end = block.begin() + at + length;
      const auto nul = std::find(message, end, 0);
      std::string text = Text(std::string(message, nul));
      if (kRecordHeader + text.size() + (end - nul) > 0xFFFF) text = Mask(std::string(message, nul), 0);
      const size_t newLength = kRecordHeader + text.size() + (end - nul);
      out.push_back(static_cast<uint8_t>(newLength & 0xFF));
      out.push_back(static_cast<uint8_t>(newLength >> 8));
      out.insert(out.end(), block.begin() + at + 2, message);
      out.insert(out.end(), text.begin(), text.end());
      out.insert(out.end(), nul, end);
      at += length;
    }
    return out;
  }

  // Every text value of the profile (member names stay).
  void RewriteStrings(Value& value) {
    if (value.IsString()) {
      const std::string text = Text(value.GetString());
      value.SetString(text.c_str(), static_cast<rapidjson::SizeType>(text.size()), allocator_);
    } else if (value.IsObject()) {
      for (auto& member : value.GetObject()) RewriteStrings(member.value);
    } else if (value.IsArray()) {
      for (Value& element : value.GetArray()) RewriteStrings(element);
    }
  }

  // Shorter originals are replaced only where they are a whole value: three
  // characters would hit unrelated text.
  static constexpr size_t kShortest = 4;

  rapidjson::Document& profile_;
  Value::AllocatorType& allocator_;
  std::map<std::string, std::string> texts_;  // original -> placeholder
  std::vector<std::string> textOrder_;
  std::vector<std::pair<std::string, size_t>> shortNames_;  // host name, length of its first label
  std::map<Bytes, Bytes> addresses_;
  std::vector<Bytes> addressOrder_;
  std::vector<std::pair<std::string, Bytes>> writtenForms_;  // an address as the profile writes it
  std::vector<std::pair<std::string, std::string>> searched_;
};

}  // namespace

bool RedactProfile(const std::string& in, std::string& out, std::string& error) {
  rapidjson::Document profile;
  profile.Parse(in.c_str(), in.size());
  if (profile.HasParseError() || !profile.IsObject()) {
    error = profile.HasParseError() ? std::string("JSON error: ") + rapidjson::GetParseError_En(profile.GetParseError())
                                    : "not a profile object";
    return false;
  }
  Redactor(profile).Run();
  out = FormatProfile(profile);
  return true;
}

}  // namespace agentsim
