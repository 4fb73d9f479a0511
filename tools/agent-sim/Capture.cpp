#include "Capture.h"

#include <cstdio>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "Profile.h"
#include "ProfileWriter.h"
#include "Responder.h"

namespace agentsim {

namespace {

using rapidjson::Document;
using rapidjson::Value;

// The "CMD" array of a record, or nullptr.
const Value* Commands(const Document& record) {
  if (record.HasParseError() || !record.IsObject()) return nullptr;
  auto sip = record.FindMember("SIP");
  if (sip == record.MemberEnd() || !sip->value.IsObject()) return nullptr;
  auto commands = sip->value.FindMember("CMD");
  return commands != sip->value.MemberEnd() && commands->value.IsArray() ? &commands->value : nullptr;
}

std::string Hex(uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%04X", number);
  return text;
}

void AddAnswer(Value& object, const AgentValue& answer, Document::AllocatorType& allocator) {
  object.AddMember("ST", answer.status, allocator);
  if (answer.data.empty()) return;
  Document data(&allocator);
  data.Parse(answer.data.c_str());  // compact JSON written by AddReply
  object.AddMember("DA", Value(data, allocator), allocator);
}

}  // namespace

void Capture::AddReply(const std::string& requestText, const std::string& replyText) {
  Document request, reply;
  request.Parse(requestText.c_str());
  reply.Parse(replyText.c_str());
  const Value* asked = Commands(request);
  const Value* answered = Commands(reply);
  if (!asked || !answered) return;
  for (rapidjson::SizeType i = 0; i < asked->Size() && i < answered->Size(); ++i) {
    const Value& command = (*asked)[i];
    const Value& result = (*answered)[i];
    if (!command.IsObject() || !result.IsObject()) continue;
    const Address at = AddressOf(command);
    auto ca = command.FindMember("CA");
    if (!askedCabinet_ && ca != command.MemberEnd() && ca->value.IsUint()) askedCabinet_ = ca->value.GetUint();

    AgentValue answer;
    auto st = result.FindMember("ST");
    // The client reads a missing "ST" as 22; written as 22 it reads the same.
    answer.status = st != result.MemberEnd() && st->value.IsUint() ? st->value.GetUint() : 22;
    auto da = result.FindMember("DA");
    if (da != result.MemberEnd()) answer.data = Compact(da->value);

    // The init reply carries this connection's descriptors, which the
    // replaying simulator makes up itself. An accepted status reset is a
    // command the replaying simulator carries out on its own values; only a
    // refused one has to be kept to replay the refusal.
    if (at.oc == kInitChannelOc || (at.oc == kStatusResetOc && answer.status == 0)) continue;
    if (at.oc == kCabinetOc && !cabinet_ && answer.status == 0 && da != result.MemberEnd() && da->value.IsUint())
      cabinet_ = da->value.GetUint();

    auto found = index_.find(at);
    if (found == index_.end()) {
      index_[at] = values_.size();
      values_.push_back(Entry{at, {}});
    }
    std::vector<Run>& runs = values_[found == index_.end() ? values_.size() - 1 : found->second].runs;
    if (!runs.empty() && runs.back().answer.status == answer.status && runs.back().answer.data == answer.data)
      ++runs.back().count;
    else
      runs.push_back(Run{answer, 1});
  }
}

void Capture::AddEvent(const std::string& text) {
  Document event;
  event.Parse(text.c_str());
  if (event.HasParseError() || !event.IsObject()) return;  // nothing a profile could replay
  // A single command is kept as a command object, like hand-written events.
  const Value* commands = Commands(event);
  bool plain = false;
  if (commands) {
    const Value& sip = event["SIP"];
    auto version = sip.FindMember("V");
    plain = event.MemberCount() == 1 && sip.MemberCount() == 2 && version != sip.MemberEnd() &&
            version->value.IsUint() && version->value.GetUint() == 1 && commands->Size() == 1 &&
            (*commands)[0].IsObject() && (*commands)[0].HasMember("OC");
  }
  events_.push_back(Compact(plain ? (*commands)[0] : static_cast<const Value&>(event)));
}

// The status of most data-less error answers: what the agent says to an
// address it does not know (the first such status on a tie).
unsigned Capture::UnknownStatus() const {
  std::vector<std::pair<unsigned, size_t>> counts;
  for (const Entry& entry : values_)
    for (const Run& run : entry.runs) {
      if (run.answer.status == 0 || !run.answer.data.empty()) continue;
      auto it = counts.begin();
      while (it != counts.end() && it->first != run.answer.status) ++it;
      if (it == counts.end()) counts.emplace_back(run.answer.status, run.count);
      else it->second += run.count;
    }
  std::pair<unsigned, size_t> best{4, 0};
  for (const auto& count : counts)
    if (count.second > best.second) best = count;
  return best.first;
}

std::string Capture::ToProfile(const std::string& when) const {
  Document profile(rapidjson::kObjectType);
  auto& allocator = profile.GetAllocator();
  profile.AddMember("description", Value(("Captured from the agent on " + when).c_str(), allocator), allocator);
  profile.AddMember("cabinet", cabinet_.value_or(askedCabinet_.value_or(0)), allocator);
  profile.AddMember("unknownStatus", UnknownStatus(), allocator);

  Value overrides(rapidjson::kArrayType);
  for (const Entry& entry : values_) {
    Value item(rapidjson::kObjectType);
    item.AddMember("OC", Value(Hex(entry.at.oc).c_str(), allocator), allocator);
    if (entry.at.oe != 0) item.AddMember("OE", Value(Hex(entry.at.oe).c_str(), allocator), allocator);
    if (entry.at.oi != 0) item.AddMember("OI", entry.at.oi, allocator);
    // Every answer in order; the last one stays, so its repeats go.
    std::vector<const AgentValue*> answers;
    for (const Run& run : entry.runs)
      for (size_t n = 0; n < (&run == &entry.runs.back() ? 1 : run.count); ++n) answers.push_back(&run.answer);
    if (answers.size() == 1) {
      AddAnswer(item, *answers[0], allocator);
    } else {
      Value list(rapidjson::kArrayType);
      for (const AgentValue* answer : answers) {
        Value one(rapidjson::kObjectType);
        AddAnswer(one, *answer, allocator);
        list.PushBack(one, allocator);
      }
      item.AddMember("answers", list, allocator);
    }
    overrides.PushBack(item, allocator);
  }
  profile.AddMember("overrides", overrides, allocator);

  Value events(rapidjson::kArrayType);
  for (const std::string& text : events_) {
    Document event(&allocator);
    event.Parse(text.c_str());
    events.PushBack(Value(event, allocator), allocator);
  }
  profile.AddMember("events", events, allocator);
  return FormatProfile(profile);
}

}  // namespace agentsim
