// The report's markup is pinned by the golden reports (tests/golden), whose
// pages override renderContent inside a composite; what they cannot show is
// checked here.
#include <gtest/gtest.h>

#include <string>

#include "html/HTMLComposite.h"

namespace {

// Counts destructions so ownership through the composite can be checked.
struct Banner : HTMLComposite {
  explicit Banner(int* count) : destroyed(count) {}
  ~Banner() override { ++*destroyed; }
  std::string renderContent() override { return "<banner/>"; }
  int* destroyed;
};

}  // namespace

// A composite renders a child of its own exact class without the virtual
// call; a subclass must still go through its override. A null slot is
// skipped when rendering and deleting.
TEST(HTMLCompositeTest, OverridesOfRenderContentCountAndEachChildIsDeletedOnce) {
  int destroyed = 0;
  {
    HTMLComposite root;
    root.add(new Banner(&destroyed));
    root.add(nullptr);
    root.add(new Banner(&destroyed));
    EXPECT_EQ(root.renderContent(), "<banner/><banner/>");
  }
  EXPECT_EQ(destroyed, 2);
}
