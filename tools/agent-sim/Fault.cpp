#include "Fault.h"

#include <algorithm>
#include <sstream>

#include "Frame.h"
#include "Profile.h"

namespace agentsim {

namespace {

bool ParseCount(const std::string& text, unsigned& out) {
  uint32_t value = 0;
  if (!ParseUnsigned(text, value)) return false;
  out = value;
  return true;
}

}  // namespace

bool ParseFault(const std::string& text, Fault& fault, std::string& error) {
  std::istringstream in(text);
  std::vector<std::string> words;
  std::vector<std::string> options;
  for (std::string word; in >> word;) (word.find('=') == std::string::npos ? words : options).push_back(word);
  if (words.empty()) {
    error = "fault mode missing";
    return false;
  }
  Fault parsed;
  const std::string& mode = words[0];
  size_t maxWords = 1;
  auto numberAt = [&](size_t index, unsigned& out) {
    if (words.size() <= index) return true;  // optional, keep the default
    if (ParseCount(words[index], out)) return true;
    error = "bad number \"" + words[index] + "\"";
    return false;
  };
  if (mode == "none") {
    parsed.kind = FaultKind::kNone;
  } else if (mode == "split") {
    parsed.kind = FaultKind::kSplit;
    maxWords = 3;
    if (words.size() < 2) {
      error = "split needs a number of pieces";
      return false;
    }
    if (!numberAt(1, parsed.pieces) || !numberAt(2, parsed.pauseMs)) return false;
    if (parsed.pieces < 1) {
      error = "split needs at least one piece";
      return false;
    }
  } else if (mode == "close") {
    parsed.kind = FaultKind::kClose;
  } else if (mode == "invalid-json") {
    parsed.kind = FaultKind::kInvalidJson;
  } else if (mode == "version") {
    parsed.kind = FaultKind::kVersion;
    maxWords = 2;
    if (!numberAt(1, parsed.version)) return false;
  } else if (mode == "length") {
    maxWords = 3;
    std::string how = words.size() > 1 ? words[1] : "";
    if (how == "zero") parsed.kind = FaultKind::kLengthZero;
    else if (how == "max") parsed.kind = FaultKind::kLengthMax;
    else if (how == "over") parsed.kind = FaultKind::kLengthOver;
    else {
      error = "length needs zero, max or over";
      return false;
    }
    if (!numberAt(2, parsed.extra)) return false;
  } else {
    error = "unknown fault \"" + mode + "\"";
    return false;
  }
  if (words.size() > maxWords) {
    error = "too many words for fault \"" + mode + "\"";
    return false;
  }
  for (const std::string& option : options) {
    std::string key = option.substr(0, option.find('='));
    std::string value = option.substr(option.find('=') + 1);
    unsigned number = 0;
    if (!ParseCount(value, number) || (key != "oc" && key != "count")) {
      error = "bad option \"" + option + "\"";
      return false;
    }
    if (key == "oc") {
      parsed.hasOc = true;
      parsed.oc = number;
    } else {
      parsed.remaining = static_cast<int>(number);
    }
  }
  fault = parsed;
  return true;
}

std::string DescribeFault(const Fault& fault) {
  std::string text;
  switch (fault.kind) {
    case FaultKind::kNone: return "none";
    case FaultKind::kSplit: text = "split " + std::to_string(fault.pieces) + " " + std::to_string(fault.pauseMs); break;
    case FaultKind::kClose: text = "close"; break;
    case FaultKind::kInvalidJson: text = "invalid-json"; break;
    case FaultKind::kVersion: text = "version " + std::to_string(fault.version); break;
    case FaultKind::kLengthZero: text = "length zero"; break;
    case FaultKind::kLengthMax: text = "length max"; break;
    case FaultKind::kLengthOver: text = "length over " + std::to_string(fault.extra); break;
  }
  if (fault.hasOc) text += " oc=" + std::to_string(fault.oc);
  if (fault.remaining >= 0) text += " count=" + std::to_string(fault.remaining);
  return text;
}

std::vector<Piece> ShapeReply(const std::string& replyText, const Fault& fault, unsigned delayMs) {
  std::string text = replyText;
  std::string frame;
  switch (fault.kind) {
    case FaultKind::kClose: return {Piece{"", delayMs, true}};
    case FaultKind::kInvalidJson: text = replyText.substr(0, replyText.size() / 2); break;
    case FaultKind::kVersion: {
      size_t at = text.find("\"V\":1");
      if (at != std::string::npos) text.replace(at, 5, "\"V\":" + std::to_string(fault.version));
      break;
    }
    default: break;
  }
  frame = EncodeFrame(text);
  uint32_t length = static_cast<uint32_t>(text.size() + 1);
  if (fault.kind == FaultKind::kLengthZero) frame.replace(0, 4, EncodeLength(0));
  if (fault.kind == FaultKind::kLengthMax) frame.replace(0, 4, EncodeLength(0xFFFFFFFFu));
  if (fault.kind == FaultKind::kLengthOver) frame.replace(0, 4, EncodeLength(length + fault.extra));
  if (fault.kind != FaultKind::kSplit) return {Piece{frame, delayMs, false}};

  size_t pieces = std::min<size_t>(fault.pieces, frame.size());
  std::vector<Piece> out;
  size_t start = 0;
  for (size_t i = 0; i < pieces; ++i) {
    size_t end = frame.size() * (i + 1) / pieces;
    out.push_back(Piece{frame.substr(start, end - start), i == 0 ? delayMs : fault.pauseMs, false});
    start = end;
  }
  return out;
}

}  // namespace agentsim
