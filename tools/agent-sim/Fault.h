#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace agentsim {

// How replies are spoiled on purpose, so clients can be tested against a
// daemon that is slow, chatty, broken or lying.
enum class FaultKind {
  kNone,
  kSplit,        // frame sent in N pieces with a pause between them
  kClose,        // connection closed instead of replying
  kInvalidJson,  // reply text cut in half
  kVersion,      // "V" other than 1
  kLengthZero,   // length word 0, payload follows anyway
  kLengthMax,    // length word 0xFFFFFFFF
  kLengthOver,   // length word larger than the payload
};

struct Fault {
  FaultKind kind = FaultKind::kNone;
  unsigned pieces = 2;
  unsigned pauseMs = 50;
  unsigned version = 2;
  unsigned extra = 64;  // surplus of kLengthOver
  bool hasOc = false;   // only requests for this value id are spoiled
  uint32_t oc = 0;
  int remaining = -1;   // replies left to spoil; -1 without limit

  bool Applies(uint32_t requestOc) const {
    return kind != FaultKind::kNone && remaining != 0 && (!hasOc || requestOc == oc);
  }
};

// "none", "split N [PAUSE_MS]", "close", "invalid-json", "version V",
// "length zero|max|over [EXTRA]", each optionally followed by "oc=ID" and
// "count=N".
bool ParseFault(const std::string& text, Fault& fault, std::string& error);
std::string DescribeFault(const Fault& fault);

// One write of a reply: sent `waitMs` after the previous piece (or after the
// request for the first one).
struct Piece {
  std::string bytes;
  unsigned waitMs = 0;
  bool closeAfter = false;
};

// The pieces that carry `replyText` under `fault` (kNone: one frame).
std::vector<Piece> ShapeReply(const std::string& replyText, const Fault& fault, unsigned delayMs);

}  // namespace agentsim
