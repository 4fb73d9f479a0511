#include "agent/SipJson.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace {

using Bytes = std::vector<unsigned char>;
const char* const kEmpty = "{\"SIP\":{\"V\":1,\"CMD\":[]}}";

// Member order and removal show in every request of the whole-run trace; what
// it never shows: a non-object command, and the repair of a kept envelope.
TEST(SipJsonRequest, GetCmdPadsAndRepairsTheList) {
  SipJson::GenericValue number(3u);
  EXPECT_FALSE(SipJson::SetCmdElemValue(number, "OC", 1, false));
  SipJson record;
  record.JsonInit();
  EXPECT_EQ(record.Serialize(), kEmpty);
  record.SetCmdIndex(2);
  EXPECT_TRUE(SipJson::SetCmdElemValue(record.GetCmd(), "OC", 5, false));
  EXPECT_EQ(record.Serialize(), Sip("{},{},{\"OC\":5}"));
  EXPECT_TRUE(SipJson::SetCmdElemValue(record.GetCmd(), "OC", 0, true));
  EXPECT_EQ(record.Serialize(), Sip("{},{},{}"));
  for (const char* kept : {"{\"SIP\":{\"V\":1}}", "{\"SIP\":{\"V\":1,\"CMD\":[5]}}"}) {
    SipJson repaired;
    ASSERT_TRUE(repaired.ParseReply(kept));
    EXPECT_TRUE(SipJson::SetCmdElemValue(repaired.GetCmd(), "OC", 1, false));
    EXPECT_EQ(repaired.Serialize(), Sip("{\"OC\":1}")) << kept;
  }
}

TEST(SipJsonElemValue, NumbersAndStrings) {
  // "08": the octal parse stops at 8. 4294967301: the low 32 bits.
  const std::pair<const char*, unsigned> cases[] = {
      {"\"0x1F\"", 31}, {"\"0X10\"", 16}, {"\"010\"", 8}, {"\"08\"", 0},           {"\"7\"", 7},   {"\"07\"", 7},
      {"\"123\"", 123}, {"\"\"", 0},      {"\"x\"", 0},   {"4294967301", 5}, {"-1", ~0u}, {"true", 99},
  };
  for (const auto& c : cases) {
    SipJson record;
    ASSERT_TRUE(record.ParseReply(Sip(std::string("{\"A\":") + c.first + "}")));
    EXPECT_EQ(record.GetCmdElemValue(0, "A", 99), c.second) << c.first;
    EXPECT_EQ(record.GetCmdDataSize(0), 0u);  // no DA at all
  }
}

TEST(SipJsonElemValue, MissingPathsGiveTheDefaultAndAddNothing) {
  for (const char* text : {"{\"SIP\":{\"V\":1,\"CMD\":{\"ST\":0}}}", "{\"SIP\":{\"V\":1,\"CMD\":[7]}}",
                           "{\"SIP\":{\"V\":1,\"CMD\":[[{\"ST\":0}]]}}", "{\"SIP\":{\"V\":1,\"CMD\":[{\"X\":1}]}}"}) {
    SipJson record;
    ASSERT_TRUE(record.ParseReply(text)) << text;
    const std::string before = record.Serialize();
    EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 22u) << text;
    EXPECT_EQ(record.GetCmdElemValue(1, "X", 22), 22u) << text;
    EXPECT_EQ(record.GetCmdElemValue(-1, "X", 22), 22u) << text;
    EXPECT_EQ(record.GetCmdDataType(0), 0) << text;
    unsigned u = 0;
    std::string s;
    Bytes b;
    EXPECT_FALSE(record.GetCmdUIntData(0, u) || record.GetCmdDataString(0, s, 0) || record.GetCmdDataStream(0, b) ||
                 record.HasReplyData());
    EXPECT_EQ(record.Serialize(), before);
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
  ASSERT_TRUE(record.ParseReply(Sip(std::string("{\"ST\":0,\"DA\":") + c.da + "}")));
  EXPECT_EQ(record.GetCmdDataType(0), c.type);
  EXPECT_EQ(record.GetCmdDataSize(0), c.size);
  Bytes stream = {0xEE};
  EXPECT_EQ(record.GetCmdDataStream(0, stream), c.streamOk);
  EXPECT_EQ(stream, c.stream);  // a failed read clears it or leaves it, as the row says
  unsigned value = 0xDEAD;
  EXPECT_EQ(record.GetCmdUIntData(0, value), c.uintOk);
  if (c.uintOk) { EXPECT_EQ(value, c.uintValue); }
  std::string text = "old";
  EXPECT_EQ(record.GetCmdDataString(0, text, 0), c.stringOk);
  EXPECT_EQ(text, c.stringOk || c.type == 3 ? c.text : "old");  // a RAW read clears it first
}

// name, DA, type, size, stream ok/bytes, uint ok/value, string ok/text.
INSTANTIATE_TEST_SUITE_P(
    Table, SipJsonDataEncoding,
    ::testing::Values(
        DataCase{"raw4", "{\"RAW\":[1,2,3,4]}", 3, 4, true, {1, 2, 3, 4}, true, 0x04030201u, true, "\x01\x02\x03\x04"},
        DataCase{"raw2", "{\"RAW\":[52,18]}", 3, 2, true, {0x34, 0x12}, true, 0x1234u, true, "4\x12"},
        DataCase{"raw1", "{\"RAW\":[300]}", 3, 1, true, {44}, true, 300u, true, ","},  // one element: its full value
        DataCase{"rawLowByte", "{\"RAW\":[257,65]}", 3, 2, true, {1, 65}, true, 0x4101u, true, "\x01" "A"},
        DataCase{"rawText", "{\"RAW\":[104,105,0,120]}", 3, 4, true, {104, 105, 0, 120}, true, 0x78006968u, true, "hi"},
        DataCase{"rawEmpty", "{\"RAW\":[]}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"rawNotNumbers", "{\"RAW\":[\"a\"]}", 3, 1, true, {}, true, 0, false, ""},
        DataCase{"rawNotArray", "{\"RAW\":5}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"objectWithoutRaw", "{\"X\":1}", 3, 0, true, {}, false, 0, false, ""},
        DataCase{"string", "\"abc\"", 5, 4, true, {'a', 'b', 'c', 0}, false, 0, true, "abc"},
        DataCase{"strings", "[\"ab\",\"c\"]", 4, 6, true, {'a', 'b', 0, 'c', 0, 0}, false, 0, false, ""},
        DataCase{"numbers", "[1,300,70000,5000000000]", 4, 15, true, {}, false, 0, false, ""},
        DataCase{"byte", "7", 6, 8, true, {7}, true, 7u, false, ""},
        DataCase{"dword", "305419896", 6, 8, true, {0x78, 0x56, 0x34, 0x12}, true, 0x12345678u, false, ""},
        DataCase{"unsigned32", "4294967295", 6, 8, true, {0xFF, 0xFF, 0xFF, 0xFF}, true, 0xFFFFFFFFu, false, ""},
        DataCase{"qword", "4294967296", 6, 8, true, {0, 0, 0, 0, 1, 0, 0, 0}, false, 0, false, ""},
        DataCase{"negative", "-2", 6, 8, false, {}, true, 0xFFFFFFFEu, false, ""},
        DataCase{"double", "1.5", 6, 0, false, {}, false, 0, false, ""},
        DataCase{"true", "true", 2, 1, false, {0xEE}, true, 1u, false, ""},
        DataCase{"false", "false", 1, 1, false, {0xEE}, true, 0u, false, ""},
        DataCase{"null", "null", 0, 0, false, {0xEE}, false, 0, true, ""}),
    [](const ::testing::TestParamInfo<DataCase>& info) { return std::string(info.param.name); });

TEST(SipJsonReplyData, StatusAndDataTypeDecide) {
  const std::pair<const char*, bool> cases[] = {
      {"{\"ST\":0,\"DA\":5}", true},   {"{\"ST\":12,\"DA\":false}", true},   {"{\"ST\":21,\"DA\":{}}", true},
      {"{\"ST\":255,\"DA\":[]}", true}, {"{\"ST\":\"0x0\",\"DA\":\"\"}", true}, {"{\"ST\":1,\"DA\":5}", false},
      {"{\"DA\":5}", false},            {"{\"ST\":0,\"DA\":null}", false},     {"{\"ST\":22,\"DA\":\"t\"}", false},
  };
  for (const auto& c : cases) {
    SipJson record;
    ASSERT_TRUE(record.ParseReply(Sip(c.first)));
    EXPECT_EQ(record.HasReplyData(), c.second) << c.first;
  }
}

TEST(SipJsonParse, OnlyAWellFormedVersionOneRecordIsKept) {
  const std::string deep = Sip("{\"ST\":0,\"DA\":" + std::string(100000, '[') + std::string(100000, ']') + "}");
  const std::string rejected[] = {
      "{\"SIP\":{\"V\":2,\"CMD\":[{\"ST\":0}]}}", "{\"SIP\":{\"V\":\"1\",\"CMD\":[{\"ST\":0}]}}",
      "{\"SIP\":{\"CMD\":[{\"ST\":0}]}}", "{\"SIP\":[1]}", "[{\"SIP\":{\"V\":1}}]", "not json", "",
      Sip("{\"ST\":0}") + " trailing", "{\"SIP\":{\"V\":1,\"CMD\":[{\"ST\":0}]",
      deep,                       // nesting far past the limit: no stack overflow
      std::string(100000, '{'),  // unbalanced openers alone
      Sip("{\"ST\":0,\"DA\":7777172402e300}"),  // read as infinity, which cannot be written back
  };
  for (const std::string& text : rejected) {
    SipJson record;
    ASSERT_TRUE(record.ParseReply(Sip("{\"ST\":0,\"DA\":5}")));
    EXPECT_FALSE(record.ParseReply(text)) << text.substr(0, 60);
    // Reset to an empty record that still serialises and reads no status.
    EXPECT_EQ(record.Serialize(), kEmpty) << text.substr(0, 60);
    EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 22u) << text.substr(0, 60);
  }
  SipJson bad;
  bad.ParseReply("{");
  EXPECT_NE(bad.GetParseError(), 0);

  // Moderate nesting below the limit is kept and serialises back unchanged.
  const std::string fine = Sip("{\"ST\":0,\"DA\":" + std::string(100, '[') + std::string(100, ']') + "}");
  EXPECT_TRUE(bad.ParseReply(fine));
  EXPECT_EQ(bad.Serialize(), fine);
}

TEST(SipJsonParse, UsesTheGivenLengthNotTheTerminator) {
  const std::string reply = Sip("{\"ST\":0}");
  const std::string padded = reply + "GARBAGE";
  SipJson record;
  EXPECT_TRUE(record.ParseReply(padded.data(), reply.size()));
  EXPECT_EQ(record.GetCmdElemValue(0, "ST", 22), 0u);
  std::vector<char> exact(reply.begin(), reply.end());  // no terminator at all
  EXPECT_TRUE(record.ParseReply(exact.data(), exact.size()));
  EXPECT_FALSE(record.ParseReply(exact.data(), exact.size() - 1));
  EXPECT_FALSE(record.ParseReply(nullptr, 10));
}

}  // namespace
