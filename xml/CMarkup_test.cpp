#include "xml/CMarkup.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

TEST(MarkupTest, LoadsWellFormedDocumentsAndLeavesNothingOfBadOnes) {
  ScopedSystemRoot root;
  CMarkup markup;
  EXPECT_TRUE(markup.Load(root.writeFile("/good.xml", "<?xml version=\"1.0\"?><Messages><Msg/></Messages>").c_str()));
  EXPECT_EQ("Messages", markup.GetRootName());
  EXPECT_FALSE(markup.Load(root.writeFile("/bad.xml", "<Messages><Msg></Messages>").c_str()));
  EXPECT_TRUE(markup.IsEmpty()) << "a failed load leaves no half document";
  EXPECT_FALSE(markup.Load((root.root() + "/missing.xml").c_str()));
  EXPECT_FALSE(markup.Load(nullptr));

  EXPECT_TRUE(markup.SetDoc("<a><b/></a>"));
  EXPECT_EQ("a", markup.GetRootName());
  EXPECT_TRUE(markup.SetDoc()) << "no text empties the document";
  EXPECT_TRUE(markup.IsEmpty());
}

}  // namespace
