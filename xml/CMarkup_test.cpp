#include "xml/CMarkup.h"

#include <gtest/gtest.h>

#include "tests/support/ScopedSystemRoot.h"

namespace {

TEST(MarkupTest, LoadsWellFormedFilesAndRejectsOthers) {
  ScopedSystemRoot root;
  CMarkup markup;
  std::string good = root.writeFile("/good.xml", "<?xml version=\"1.0\"?><Messages><Msg Id=\"1\">x</Msg></Messages>");
  EXPECT_TRUE(markup.Load(good.c_str()));
  EXPECT_EQ("Messages", markup.GetRootName());

  std::string bad = root.writeFile("/bad.xml", "<Messages><Msg></Messages>");
  EXPECT_FALSE(markup.Load(bad.c_str()));
  EXPECT_TRUE(markup.IsEmpty()) << "a failed load leaves no half document";
  EXPECT_FALSE(markup.Load((root.root() + "/missing.xml").c_str()));
  EXPECT_FALSE(markup.Load(nullptr));
}

TEST(MarkupTest, SetDocWithoutTextEmptiesTheDocument) {
  CMarkup markup;
  EXPECT_TRUE(markup.SetDoc("<a><b/></a>"));
  EXPECT_EQ("a", markup.GetRootName());
  EXPECT_TRUE(markup.SetDoc());
  EXPECT_TRUE(markup.IsEmpty());
  EXPECT_FALSE(markup.SetDoc("<a>"));
  EXPECT_TRUE(markup.IsEmpty());
}

}  // namespace
