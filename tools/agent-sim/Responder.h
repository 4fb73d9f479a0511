#pragma once

#include <cstdint>
#include <string>

#include <rapidjson/document.h>

#include "Profile.h"

namespace agentsim {

// The value address of a request command. Members that are not unsigned
// numbers read as absent (0), like the client's own getter.
Address AddressOf(const rapidjson::Value& command);

// What one request did besides producing its reply.
struct Outcome {
  std::string reply;               // complete reply text (no framing)
  bool registersEventChannel = false;
  bool clearedStatus = false;      // a Driver Monitor status reset was done
  uint32_t firstOc = 0;            // value id of the first command, 0 if none
};

// Answers request texts from the profile's values: every command of the
// record gets "ST" and, for a known address, "DA"; the rest of the command
// is echoed as received. Leftover "ST"/"DA" members of a reused record are
// dropped before answering.
class Responder {
 public:
  explicit Responder(Profile& profile) : profile_(profile) {}

  // `channelFd` is the simulator's own descriptor of the connection, sent
  // back in the init-channel reply as the real daemon does.
  Outcome Respond(const std::string& requestText, int channelFd);

  ValueStore& Values() { return profile_.values; }

 private:
  Profile& profile_;
};

}  // namespace agentsim
