#include "ValueStore.h"

#include <algorithm>
#include <cstdlib>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace agentsim {

void ValueStore::SetNumber(Address at, uint64_t value) { Set(at, 0, std::to_string(value)); }

void ValueStore::SetString(Address at, const std::string& text) { Set(at, 0, JsonString(text)); }

void ValueStore::SetRaw(Address at, const std::vector<uint8_t>& bytes) { Set(at, 0, JsonRaw(bytes)); }

void ValueStore::Set(Address at, unsigned status, const std::string& dataJson) {
  AgentValue& value = values_[at];
  value.status = status;
  value.data = dataJson;
  later_.erase(at);
}

void ValueStore::SetAnswers(Address at, const std::vector<AgentValue>& answers) {
  if (answers.empty()) return Erase(at);
  values_[at] = answers.front();
  later_[at].assign(answers.begin() + 1, answers.end());
}

bool ValueStore::Answer(Address at, AgentValue& out) {
  auto it = values_.find(at);
  if (it == values_.end()) return false;
  out = it->second;
  auto next = later_.find(at);
  if (next != later_.end() && !next->second.empty()) {
    it->second = next->second.front();
    next->second.pop_front();
  }
  return true;
}

const AgentValue* ValueStore::Find(Address at) const {
  auto it = values_.find(at);
  return it == values_.end() ? nullptr : &it->second;
}

static bool ParsePlainNumber(const std::string& text, uint64_t& out) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return false;
  out = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

bool ValueStore::GetNumber(Address at, uint64_t& out) const {
  const AgentValue* value = Find(at);
  return value && value->status == 0 && ParsePlainNumber(value->data, out);
}

size_t ValueStore::ReplaceNumbers(uint32_t oc, const std::vector<uint64_t>& from, uint64_t to) {
  size_t changed = 0;
  for (auto& [address, value] : values_) {
    uint64_t number = 0;
    if (address.oc != oc || !ParsePlainNumber(value.data, number)) continue;
    if (std::find(from.begin(), from.end(), number) == from.end()) continue;
    value.data = std::to_string(to);
    ++changed;
  }
  return changed;
}

std::string ValueStore::JsonString(const std::string& text) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
  return buffer.GetString();
}

std::string ValueStore::JsonRaw(const std::vector<uint8_t>& bytes) {
  std::string json = "{\"RAW\":[";
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i) json += ',';
    json += std::to_string(bytes[i]);
  }
  return json + "]}";
}

}  // namespace agentsim
