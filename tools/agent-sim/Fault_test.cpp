#include "Fault.h"

#include <gtest/gtest.h>

#include "Frame.h"

namespace agentsim {
namespace {

std::string Joined(const std::vector<Piece>& pieces) {
  std::string all;
  for (const Piece& piece : pieces) all += piece.bytes;
  return all;
}

uint32_t LengthWord(const std::string& frame) {
  uint32_t length = 0;
  for (int i = 0; i < 4; ++i) length |= uint32_t(static_cast<unsigned char>(frame[i])) << (8 * i);
  return length;
}

TEST(FaultTest, ParsesModesOptionsAndRejectsNonsense) {
  Fault fault;
  std::string error;
  ASSERT_TRUE(ParseFault("split 3 20 oc=0x0301 count=2", fault, error)) << error;
  EXPECT_EQ(fault.kind, FaultKind::kSplit);
  EXPECT_EQ(fault.pieces, 3u);
  EXPECT_EQ(fault.pauseMs, 20u);
  EXPECT_TRUE(fault.hasOc);
  EXPECT_EQ(fault.oc, 0x0301u);
  EXPECT_EQ(fault.remaining, 2);
  EXPECT_EQ(DescribeFault(fault), "split 3 20 oc=769 count=2");
  EXPECT_TRUE(fault.Applies(0x0301));
  EXPECT_FALSE(fault.Applies(0x0302));
  fault.remaining = 0;
  EXPECT_FALSE(fault.Applies(0x0301));

  ASSERT_TRUE(ParseFault("length over 7", fault, error));
  EXPECT_EQ(fault.kind, FaultKind::kLengthOver);
  EXPECT_EQ(fault.extra, 7u);
  EXPECT_TRUE(fault.Applies(1));
  ASSERT_TRUE(ParseFault("version 2", fault, error));
  EXPECT_EQ(fault.version, 2u);
  ASSERT_TRUE(ParseFault("none", fault, error));
  EXPECT_FALSE(fault.Applies(1));

  Fault kept;
  ASSERT_TRUE(ParseFault("close", kept, error));
  for (const char* bad : {"", "split", "split 0", "split x", "length", "length huge", "explode", "close 3",
                          "close oc=", "close when=1", "version v"}) {
    EXPECT_FALSE(ParseFault(bad, kept, error)) << bad;
    EXPECT_EQ(kept.kind, FaultKind::kClose) << "a rejected spec must not change the fault: " << bad;
  }
}

TEST(FaultTest, ShapesTheFrameOnTheWire) {
  const std::string reply = R"({"SIP":{"V":1,"CMD":[{"OC":1,"ST":0,"DA":5}]}})";
  const std::string frame = EncodeFrame(reply);
  Fault fault;
  std::string error;

  std::vector<Piece> plain = ShapeReply(reply, fault, 30);
  ASSERT_EQ(plain.size(), 1u);
  EXPECT_EQ(plain[0].bytes, frame);
  EXPECT_EQ(plain[0].waitMs, 30u);

  ASSERT_TRUE(ParseFault("split 4 15", fault, error));
  std::vector<Piece> split = ShapeReply(reply, fault, 5);
  ASSERT_EQ(split.size(), 4u);
  EXPECT_EQ(Joined(split), frame);
  EXPECT_EQ(split[0].waitMs, 5u);
  EXPECT_EQ(split[3].waitMs, 15u);
  for (const Piece& piece : split) EXPECT_FALSE(piece.bytes.empty());
  ASSERT_TRUE(ParseFault("split 500", fault, error));
  EXPECT_EQ(ShapeReply("x", fault, 0).size(), 6u);  // never an empty piece

  ASSERT_TRUE(ParseFault("close", fault, error));
  std::vector<Piece> close = ShapeReply(reply, fault, 0);
  ASSERT_EQ(close.size(), 1u);
  EXPECT_TRUE(close[0].bytes.empty());
  EXPECT_TRUE(close[0].closeAfter);

  ASSERT_TRUE(ParseFault("version 7", fault, error));
  EXPECT_EQ(Joined(ShapeReply(reply, fault, 0)), EncodeFrame(R"({"SIP":{"V":7,"CMD":[{"OC":1,"ST":0,"DA":5}]}})"));

  ASSERT_TRUE(ParseFault("invalid-json", fault, error));
  std::string cut = Joined(ShapeReply(reply, fault, 0));
  EXPECT_EQ(LengthWord(cut), cut.size() - 4);  // still a proper frame, only the text is broken
  EXPECT_EQ(cut.substr(4, cut.size() - 5), reply.substr(0, reply.size() / 2));

  ASSERT_TRUE(ParseFault("length zero", fault, error));
  std::string zero = Joined(ShapeReply(reply, fault, 0));
  EXPECT_EQ(LengthWord(zero), 0u);
  EXPECT_EQ(zero.substr(4), frame.substr(4));
  ASSERT_TRUE(ParseFault("length max", fault, error));
  EXPECT_EQ(LengthWord(Joined(ShapeReply(reply, fault, 0))), 0xFFFFFFFFu);
  ASSERT_TRUE(ParseFault("length over 10", fault, error));
  EXPECT_EQ(LengthWord(Joined(ShapeReply(reply, fault, 0))), reply.size() + 1 + 10);
}

TEST(FrameTest, ReaderCutsFramesFromAnyChunking) {
  std::string stream = EncodeFrame("first") + EncodeFrame("") + EncodeFrame("third");
  stream += EncodeLength(4) + std::string("ab\0z", 4);  // text ends at the first NUL
  FrameReader reader;
  std::vector<std::string> texts;
  std::string text;
  for (char byte : stream) {  // one byte at a time: the worst split a peer can do
    reader.Append(&byte, 1);
    while (reader.Next(text) == FrameReader::Result::kFrame) texts.push_back(text);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"first", "", "third", "ab"}));
  EXPECT_EQ(reader.Buffered(), 0u);

  FrameReader small(100);
  std::string huge = EncodeLength(101);
  small.Append(huge.data(), huge.size());
  EXPECT_EQ(small.Next(text), FrameReader::Result::kTooLarge);
  FrameReader partial;
  partial.Append("\x05\x00\x00", 3);
  EXPECT_EQ(partial.Next(text), FrameReader::Result::kNeedMore);
}

}  // namespace
}  // namespace agentsim
