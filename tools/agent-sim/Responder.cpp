#include "Responder.h"

#include <vector>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace agentsim {

namespace {

using rapidjson::Document;
using rapidjson::Value;

constexpr size_t kInitBlockSize = 218;
constexpr size_t kClientNameSize = 65;

uint32_t Member(const Value& command, const char* name) {
  auto member = command.FindMember(name);
  if (member == command.MemberEnd() || !member->value.IsUint64()) return 0;
  return static_cast<uint32_t>(member->value.GetUint64());
}

std::vector<uint8_t> InitReplyBlock(const Value& command, int channelFd) {
  std::vector<uint8_t> block(kInitBlockSize, 0);
  // Echo the client's name, then our own descriptor at offset 65.
  auto data = command.FindMember("DA");
  if (data != command.MemberEnd() && data->value.IsObject() && data->value.HasMember("RAW") &&
      data->value["RAW"].IsArray()) {
    const Value& raw = data->value["RAW"];
    for (rapidjson::SizeType i = 0; i < raw.Size() && i < kClientNameSize; ++i)
      if (raw[i].IsUint()) block[i] = static_cast<uint8_t>(raw[i].GetUint());
  }
  uint32_t fd = static_cast<uint32_t>(channelFd);
  for (int i = 0; i < 4; ++i) block[kClientNameSize + i] = static_cast<uint8_t>(fd >> (8 * i));
  return block;
}

void SetReply(Value& command, unsigned status, const std::string& dataJson, Document::AllocatorType& allocator) {
  command.AddMember("ST", status, allocator);
  if (dataJson.empty()) return;
  Document data(&allocator);
  data.Parse(dataJson.c_str());
  if (data.HasParseError()) return;  // the store only holds JSON it wrote or parsed
  Value copy(data, allocator);
  command.AddMember("DA", copy, allocator);
}

}  // namespace

Address AddressOf(const Value& command) {
  return Address{Member(command, "OC"), Member(command, "OE"), Member(command, "OI")};
}

Outcome Responder::Respond(const std::string& requestText, int channelFd) {
  Outcome outcome;
  Document document;
  document.Parse(requestText.c_str());
  auto& allocator = document.GetAllocator();

  bool wellFormed = !document.HasParseError() && document.IsObject() && document.HasMember("SIP") &&
                    document["SIP"].IsObject() && document["SIP"].HasMember("CMD") &&
                    document["SIP"]["CMD"].IsArray();
  if (!wellFormed) {
    // Nothing addressable: answer with an empty command list.
    outcome.reply = "{\"SIP\":{\"V\":1,\"CMD\":[]}}";
    return outcome;
  }

  // The daemon answers in its own protocol version whatever the client sent.
  Value& sip = document["SIP"];
  if (sip.HasMember("V")) sip["V"].SetUint(1);
  else sip.AddMember("V", 1u, allocator);
  Value& commands = sip["CMD"];
  if (!commands.Empty() && commands[0].IsObject() && commands[0].HasMember("OC") && commands[0]["OC"].IsUint())
    outcome.firstOc = commands[0]["OC"].GetUint();
  for (Value& command : commands.GetArray()) {
    if (!command.IsObject()) continue;
    const Address at = AddressOf(command);
    std::string initBlock;
    if (at.oc == kInitChannelOc) {
      initBlock = ValueStore::JsonRaw(InitReplyBlock(command, channelFd));
      if (at.oe == kEventChannelCode) outcome.registersEventChannel = true;
    }
    command.RemoveMember("ST");
    command.RemoveMember("DA");

    if (at.oc == kInitChannelOc) {
      SetReply(command, 0, initBlock, allocator);
      continue;
    }
    // A client that lost its cabinet number would address another machine.
    auto cabinet = command.FindMember("CA");
    if (cabinet != command.MemberEnd() && (!cabinet->value.IsUint() || cabinet->value.GetUint() != profile_.cabinet)) {
      SetReply(command, profile_.unknownStatus, "", allocator);
      continue;
    }
    AgentValue value;
    const bool known = profile_.values.Answer(at, value);
    if (at.oc == kStatusResetOc) {
      // Accepted unless the profile overrides the reply with an error.
      if (!known) value = AgentValue{0, "1"};
      SetReply(command, value.status, value.data, allocator);
      if (value.status == 0) {
        profile_.values.ReplaceNumbers(kDrvMonStatusOc, {2, 3}, 1);
        outcome.clearedStatus = true;
      }
      continue;
    }
    if (known) SetReply(command, value.status, value.data, allocator);
    else SetReply(command, profile_.unknownStatus, "", allocator);
  }

  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  outcome.reply = buffer.GetString();
  return outcome;
}

}  // namespace agentsim
