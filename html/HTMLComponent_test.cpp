// The report's markup is pinned by the golden reports (tests/golden); what
// they cannot show is checked here.
#include <gtest/gtest.h>

#include <string>

#include "html/CollapsibleComposite.h"
#include "html/HTMLComposite.h"

namespace {

// Counts destructions so ownership through the composite can be checked.
struct Banner : HTMLComposite {
  explicit Banner(int* count) : destroyed(count) {}
  ~Banner() override { ++*destroyed; }
  std::string renderContent() override { return "<banner/>"; }
  int* destroyed;
};

struct Framed : CollapsibleComposite {
  std::string renderContent() override { return "[" + CollapsibleComposite::renderContent() + "]"; }
};

}  // namespace

// Composites render a child of an exact component class without the virtual
// call; a subclass that overrides renderContent must still be rendered
// through it, wherever it sits in the tree.
TEST(HTMLCompositeTest, OverridesOfRenderContentCountAndEachChildIsDeletedOnce) {
  int destroyed = 0;
  {
    HTMLComposite root;
    auto* framed = new Framed;
    framed->setTitle("F");
    framed->add(new Banner(&destroyed));
    framed->add(nullptr);  // a null slot is skipped when rendering and deleting
    root.add(framed);
    root.add(new Banner(&destroyed));
    const std::string expected =
        "[\n    <button type=\"button\" class=\"collapsible title-text\">F</button>\n    <div class=\"content\">"
        "<banner/>\n    </div>]<banner/>";
    EXPECT_EQ(root.renderContent(), expected);
    EXPECT_EQ(root.renderContent(), expected) << "rendering leaves the tree as it was";
  }
  EXPECT_EQ(destroyed, 2);
}
