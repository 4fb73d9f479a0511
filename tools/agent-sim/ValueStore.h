#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace agentsim {

// An agent value address: value id ("OC"), sub-index ("OE"), object index ("OI").
struct Address {
  uint32_t oc = 0;
  uint32_t oe = 0;
  uint32_t oi = 0;

  bool operator<(const Address& other) const {
    return std::tie(oc, oe, oi) < std::tie(other.oc, other.oe, other.oi);
  }
  bool operator==(const Address& other) const {
    return oc == other.oc && oe == other.oe && oi == other.oi;
  }
};

// What the agent answers for one address: a status and, optionally, the
// "DA" member kept as compact JSON text (parsed again into each reply).
struct AgentValue {
  unsigned status = 0;
  std::string data;  // empty: the reply carries no "DA"
};

class ValueStore {
 public:
  void SetNumber(Address at, uint64_t value);
  void SetString(Address at, const std::string& text);
  void SetRaw(Address at, const std::vector<uint8_t>& bytes);
  // `dataJson` empty: no "DA".
  void Set(Address at, unsigned status, const std::string& dataJson);
  // A value that changes: the first answer now, each later one for the next
  // request, and the last one from then on.
  void SetAnswers(Address at, const std::vector<AgentValue>& answers);
  void Erase(Address at) {
    values_.erase(at);
    later_.erase(at);
  }

  const AgentValue* Find(Address at) const;
  // The answer to one request for `at` (false: unknown); moves a changing
  // value on to its next answer.
  bool Answer(Address at, AgentValue& out);
  // The number stored at `at`, if the value is a plain number with status 0.
  bool GetNumber(Address at, uint64_t& out) const;
  size_t Size() const { return values_.size(); }

  // Replaces, for every address with value id `oc`, a number found in
  // `from` by `to`; returns how many were changed.
  size_t ReplaceNumbers(uint32_t oc, const std::vector<uint64_t>& from, uint64_t to);

  static std::string JsonString(const std::string& text);
  static std::string JsonRaw(const std::vector<uint8_t>& bytes);

 private:
  std::map<Address, AgentValue> values_;
  std::map<Address, std::deque<AgentValue>> later_;  // answers still to come
};

}  // namespace agentsim
