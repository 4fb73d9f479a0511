#pragma once

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "ValueStore.h"

namespace agentsim {

// Well-known value ids the simulator itself acts on.
constexpr uint32_t kInitChannelOc = 0xFFA0;
constexpr uint32_t kRequestChannelCode = 0x1100;
constexpr uint32_t kEventChannelCode = 0x1200;
constexpr uint32_t kCabinetOc = 0xE204;
constexpr uint32_t kStatusResetOc = 0x180A;
constexpr uint32_t kDrvMonStatusOc = 0x1801;

// A server described in component terms (fans, sensors, drives, ...) and
// turned into agent values by address. See README.md for the file format.
struct Profile {
  unsigned cabinet = 0;
  // "ST" of a request for an address the profile does not know.
  unsigned unknownStatus = 4;
  ValueStore values;
  // Event records (complete texts) pushed to registered event channels.
  std::vector<std::string> events;

  // False with a message naming the offending member; `profile` is then
  // partly filled and should not be used.
  static bool Parse(const std::string& jsonText, Profile& profile, std::string& error);
  static bool Load(const std::string& path, Profile& profile, std::string& error);
};

// "0x0301", "769" or a JSON number: value ids are easier to read in hex.
bool ParseUnsigned(const std::string& text, uint32_t& out);

// A JSON value as compact text, as profiles and captures store raw answers.
std::string Compact(const rapidjson::Value& value);

}  // namespace agentsim
