#include "agent/SipJson.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// A record holding one reply command whose "DA" is the given JSON text.
void LoadData(SipJson& record, const std::string& da, const std::string& extra = ",\"ST\":0") {
  const std::string text = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":1" + extra + ",\"DA\":" + da + "}]}}";
  ASSERT_TRUE(record.ParseReply(text)) << text;
}

TEST(SipJsonRequest, SkeletonAndFillOrderSerialiseCompactly) {
  SipJson record;
  record.JsonInit();
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[]}}");

  SipJson::GenericValue& cmd = record.GetCmd();
  EXPECT_TRUE(SipJson::SetCmdElemValue(cmd, "OC", 0x301, false));
  EXPECT_TRUE(SipJson::SetCmdElemValue(cmd, "OE", 0, true));
  EXPECT_TRUE(SipJson::SetCmdElemValue(cmd, "OI", 4, true));
  EXPECT_TRUE(SipJson::SetCmdElemValue(cmd, "CA", 0, false));
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"OI\":4,\"CA\":0}]}}");

  // Replacing keeps the member's place; zero with removal drops it.
  EXPECT_TRUE(SipJson::SetCmdElemValue(record.GetCmd(), "OC", 5, false));
  EXPECT_TRUE(SipJson::SetCmdElemValue(record.GetCmd(), "OI", 0, true));
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":5,\"CA\":0}]}}");
  // Removing an absent member changes nothing and still succeeds.
  EXPECT_TRUE(SipJson::SetCmdElemValue(record.GetCmd(), "OE", 0, true));
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":5,\"CA\":0}]}}");

  SipJson::GenericValue number(3u);
  EXPECT_FALSE(SipJson::SetCmdElemValue(number, "OC", 1, false));
}

TEST(SipJsonRequest, GetCmdPadsTheListAndRepairsABrokenEnvelope) {
  SipJson record;
  record.SetCmdIndex(2);
  record.GetCmd();
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{},{},{}]}}");

  // A kept reply without "CMD", or with a non-object command, still gives a
  // usable command object.
  SipJson noList;
  ASSERT_TRUE(noList.ParseReply("{\"SIP\":{\"V\":1}}"));
  EXPECT_TRUE(SipJson::SetCmdElemValue(noList.GetCmd(), "OC", 1, false));
  EXPECT_EQ(noList.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":1}]}}");

  SipJson wrongElement;
  ASSERT_TRUE(wrongElement.ParseReply("{\"SIP\":{\"V\":1,\"CMD\":[5]}}"));
  EXPECT_TRUE(SipJson::SetCmdElemValue(wrongElement.GetCmd(), "OC", 2, false));
  EXPECT_EQ(wrongElement.GetCmdElemValue(0, "OC", 0), 2u);
}

TEST(SipJsonElemValue, NumbersStringsAndMissingPaths) {
  SipJson record;
  ASSERT_TRUE(record.ParseReply(
      "{\"SIP\":{\"V\":1,\"CMD\":[{\"A\":\"0x1F\",\"B\":\"010\",\"C\":\"08\",\"D\":\"7\",\"E\":\"07\","
      "\"F\":\"0X10\",\"G\":\"123\",\"H\":4294967301,\"I\":true,\"J\":\"\",\"K\":-1,\"L\":\"x\"}]}}"));
  EXPECT_EQ(record.GetCmdElemValue(0, "A", 99), 31u);
  EXPECT_EQ(record.GetCmdElemValue(0, "B", 99), 8u);
  EXPECT_EQ(record.GetCmdElemValue(0, "C", 99), 0u);  // octal parse stops at 8
  EXPECT_EQ(record.GetCmdElemValue(0, "D", 99), 7u);
  EXPECT_EQ(record.GetCmdElemValue(0, "E", 99), 7u);
  EXPECT_EQ(record.GetCmdElemValue(0, "F", 99), 16u);
  EXPECT_EQ(record.GetCmdElemValue(0, "G", 99), 123u);
  EXPECT_EQ(record.GetCmdElemValue(0, "H", 99), 5u);  // low 32 bits
  EXPECT_EQ(record.GetCmdElemValue(0, "I", 99), 99u);
  EXPECT_EQ(record.GetCmdElemValue(0, "J", 99), 0u);
  EXPECT_EQ(record.GetCmdElemValue(0, "K", 99), 0xFFFFFFFFu);
  EXPECT_EQ(record.GetCmdElemValue(0, "L", 99), 0u);
  EXPECT_EQ(record.GetCmdElemValue(0, "missing", 99), 99u);
  EXPECT_EQ(record.GetCmdElemValue(1, "A", 99), 99u);
  EXPECT_EQ(record.GetCmdElemValue(-1, "A", 99), 99u);

  for (const char* broken : {"{\"SIP\":{\"V\":1,\"CMD\":{\"ST\":0}}}", "{\"SIP\":{\"V\":1,\"CMD\":[7]}}",
                             "{\"SIP\":{\"V\":1,\"CMD\":[[{\"ST\":0}]]}}"}) {
    SipJson r;
    ASSERT_TRUE(r.ParseReply(broken)) << broken;
    EXPECT_EQ(r.GetCmdElemValue(0, "ST", 22), 22u) << broken;
    EXPECT_EQ(r.GetCmdDataType(0), 0) << broken;
    // Reading never adds members.
    const std::string before = r.Serialize();
    unsigned u = 0;
    std::string s;
    Bytes b;
    EXPECT_FALSE(r.GetCmdUIntData(0, u));
    EXPECT_FALSE(r.GetCmdDataString(0, s, 0));
    EXPECT_FALSE(r.GetCmdDataStream(0, b));
    EXPECT_EQ(r.Serialize(), before);
  }
}

struct DataCase {
  const char* name;
  const char* da;
  int type;
  size_t size;
  bool streamOk;
  Bytes stream;
  bool uintOk;
  unsigned uintValue;
  bool stringOk;
  std::string text;
};

class SipJsonDataEncoding : public ::testing::TestWithParam<DataCase> {};

TEST_P(SipJsonDataEncoding, GettersReadEachEncoding) {
  const DataCase& c = GetParam();
  SipJson record;
  LoadData(record, c.da);
  EXPECT_EQ(record.GetCmdDataType(0), c.type);
  EXPECT_EQ(record.GetCmdDataSize(0), c.size);

  Bytes stream = {0xEE};
  EXPECT_EQ(record.GetCmdDataStream(0, stream), c.streamOk);
  if (c.streamOk) {
    EXPECT_EQ(stream, c.stream);
  }

  unsigned value = 0xDEAD;
  EXPECT_EQ(record.GetCmdUIntData(0, value), c.uintOk);
  if (c.uintOk) {
    EXPECT_EQ(value, c.uintValue);
  }

  std::string text = "old";
  EXPECT_EQ(record.GetCmdDataString(0, text, 0), c.stringOk);
  if (c.stringOk) {
    EXPECT_EQ(text, c.text);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, SipJsonDataEncoding,
    ::testing::Values(
        DataCase{"raw4", "{\"RAW\":[1,2,3,4]}", 3, 4, true, {1, 2, 3, 4}, true, 0x04030201u, true, "\x01\x02\x03\x04"},
        DataCase{"raw2", "{\"RAW\":[52,18]}", 3, 2, true, {0x34, 0x12}, true, 0x1234u, true, "4\x12"},
        DataCase{"raw1", "{\"RAW\":[200]}", 3, 1, true, {200}, true, 200u, true, "\xC8"},
        // Three bytes read as a four-byte value with a zero top byte.
        DataCase{"raw3", "{\"RAW\":[1,2,3]}", 3, 3, true, {1, 2, 3}, true, 0x030201u, true, "\x01\x02\x03"},
        DataCase{"rawLowByte", "{\"RAW\":[257,65]}", 3, 2, true, {1, 65}, true, 0x4101u, true, "\x01" "A"},
        DataCase{"rawText", "{\"RAW\":[104,105,0,120]}", 3, 4, true, {104, 105, 0, 120}, true, 0x78006968u, true, "hi"},
        DataCase{"rawEmpty", "{\"RAW\":[]}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"rawNotNumbers", "{\"RAW\":[\"a\"]}", 3, 1, true, {}, true, 0, false, ""},
        DataCase{"rawNotArray", "{\"RAW\":5}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"objectWithoutRaw", "{\"X\":1}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"string", "\"abc\"", 5, 4, true, {'a', 'b', 'c', 0}, false, 0, true, "abc"},
        DataCase{"emptyString", "\"\"", 5, 1, true, {0}, false, 0, true, ""},
        DataCase{"strings", "[\"ab\",\"c\"]", 4, 6, true, {'a', 'b', 0, 'c', 0, 0}, false, 0, false, ""},
        DataCase{"numbers", "[1,300,70000,5000000000]", 4, 15, true, {}, false, 0, false, ""},
        DataCase{"emptyArray", "[]", 4, 0, true, {}, false, 0, false, ""},
        DataCase{"byte", "7", 6, 8, true, {7}, true, 7u, false, ""},
        DataCase{"word", "4660", 6, 8, true, {0x34, 0x12}, true, 0x1234u, false, ""},
        DataCase{"dword", "305419896", 6, 8, true, {0x78, 0x56, 0x34, 0x12}, true, 0x12345678u, false, ""},
        DataCase{"unsigned32", "4294967295", 6, 8, true, {0xFF, 0xFF, 0xFF, 0xFF}, true, 0xFFFFFFFFu, false, ""},
        DataCase{"qword", "4294967296", 6, 8, true, {0, 0, 0, 0, 1, 0, 0, 0}, false, 0, false, ""},
        DataCase{"negative", "-2", 6, 8, false, {}, true, 0xFFFFFFFEu, false, ""},
        DataCase{"double", "1.5", 6, 0, false, {}, false, 0, false, ""},
        DataCase{"true", "true", 2, 1, false, {}, true, 1u, false, ""},
        DataCase{"false", "false", 1, 1, false, {}, true, 0u, false, ""},
        DataCase{"null", "null", 0, 0, false, {}, false, 0, true, ""}),
    [](const ::testing::TestParamInfo<DataCase>& info) { return std::string(info.param.name); });

TEST(SipJsonDataString, OffsetsIntoRawAndStrings) {
  SipJson record;
  LoadData(record, "{\"RAW\":[65,66,67]}");
  std::string text;
  EXPECT_TRUE(record.GetCmdDataString(0, text, 1));
  EXPECT_EQ(text, "BC");
  EXPECT_FALSE(record.GetCmdDataString(0, text, 3));
  EXPECT_EQ(text, "");  // cleared before the checks

  LoadData(record, "\"abc\"");
  text = "keep";
  EXPECT_FALSE(record.GetCmdDataString(0, text, 1));
  EXPECT_EQ(text, "keep");
}

TEST(SipJsonReplyData, StatusAndDataTypeDecide) {
  struct Case {
    const char* extra;
    const char* da;
    bool expected;
  };
  const Case cases[] = {
      {",\"ST\":0", "5", true},          {",\"ST\":12", "false", true}, {",\"ST\":21", "{}", true},
      {",\"ST\":255", "[]", true},       {",\"ST\":0", "\"\"", true},   {",\"ST\":1", "5", false},
      {"", "5", false},                  {",\"ST\":0", "null", false},  {",\"ST\":\"0x0\"", "true", true},
      {",\"ST\":22", "\"text\"", false},
  };
  for (const Case& c : cases) {
    SipJson record;
    LoadData(record, c.da, c.extra);
    EXPECT_EQ(record.HasReplyData(), c.expected) << c.extra << " " << c.da;
  }
  SipJson noData;
  ASSERT_TRUE(noData.ParseReply("{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]}}"));
  EXPECT_FALSE(noData.HasReplyData());
}

TEST(SipJsonParse, OnlyAWellFormedVersionOneRecordIsKept) {
  const char* rejected[] = {
      "{\"SIP\":{\"V\":2,\"CMD\":[{\"ST\":0}]}}",
      "{\"SIP\":{\"V\":\"1\",\"CMD\":[{\"ST\":0}]}}",
      "{\"SIP\":{\"CMD\":[{\"ST\":0}]}}",
      "{\"SIP\":[1]}",
      "[{\"SIP\":{\"V\":1}}]",
      "not json",
      "",
      "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]}} trailing",
      "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]",
  };
  for (const char* text : rejected) {
    SipJson record;
    LoadData(record, "5");
    EXPECT_FALSE(record.ParseReply(text)) << text;
    EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[]}}") << text;
    EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 22u) << text;
  }
  SipJson bad;
  bad.ParseReply("{");
  EXPECT_NE(bad.GetParseError(), 0);
}

TEST(SipJsonParse, UsesTheGivenLengthNotTheTerminator) {
  const std::string reply = "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]}}";
  const std::string padded = reply + "GARBAGE";
  SipJson record;
  EXPECT_TRUE(record.ParseReply(padded.data(), reply.size()));
  EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 0u);
  // A buffer without any terminator is read only up to its length.
  std::vector<char> exact(reply.begin(), reply.end());
  EXPECT_TRUE(record.ParseReply(exact.data(), exact.size()));
  EXPECT_FALSE(record.ParseReply(exact.data(), exact.size() - 1));
  EXPECT_FALSE(record.ParseReply(nullptr, 10));
}

TEST(SipJsonParse, DeepNestingIsRefusedAndTheRecordStaysUsable) {
  const size_t depth = 100000;
  std::string deep = "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0,\"DA\":";
  deep.append(depth, '[');
  deep.append(depth, ']');
  deep += "}]}}";
  SipJson record;
  EXPECT_FALSE(record.ParseReply(deep));
  EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 22u);
  EXPECT_EQ(record.Serialize(), "{\"SIP\":{\"V\":1,\"CMD\":[]}}");

  // Unbalanced openers alone must not exhaust anything either.
  std::string open(depth, '{');
  EXPECT_FALSE(record.ParseReply(open));

  // Moderate nesting below the limit is kept and serialises back unchanged.
  std::string fine = "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0,\"DA\":";
  fine.append(100, '[');
  fine.append(100, ']');
  fine += "}]}}";
  EXPECT_TRUE(record.ParseReply(fine));
  EXPECT_EQ(record.Serialize(), fine);
}

}  // namespace
