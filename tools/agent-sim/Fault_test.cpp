// What each fault does on the wire is checked end to end in
// AgentSimServe_test.cpp; here only what a socket test cannot see cheaply.
#include "Fault.h"

#include <gtest/gtest.h>

#include "Frame.h"

namespace agentsim {
namespace {

TEST(FaultTest, ParsesOptionsAndARejectedSpecKeepsTheOldFault) {
  Fault fault;
  std::string error;
  ASSERT_TRUE(ParseFault("split 3 20 oc=0x0301 count=2", fault, error)) << error;
  EXPECT_EQ(DescribeFault(fault), "split 3 20 oc=769 count=2");
  for (const char* bad : {"", "split", "split 0", "split x", "length", "length huge", "explode", "close 3",
                          "close oc=", "close when=1", "version v"}) {
    EXPECT_FALSE(ParseFault(bad, fault, error)) << bad;
    EXPECT_EQ(DescribeFault(fault), "split 3 20 oc=769 count=2") << bad;
  }
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
}

}  // namespace
}  // namespace agentsim
