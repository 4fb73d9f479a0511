#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "html/CollapsibleComposite.h"
#include "html/HTMLComposite.h"
#include "html/PanelComponent.h"
#include "html/TableComponent.h"

namespace {

// Counts destructions so ownership through the composite can be checked.
struct CountingLeaf : HTMLComponent {
  CountingLeaf(std::string text, int* count) : html(std::move(text)), destroyed(count) {}
  ~CountingLeaf() override { ++*destroyed; }
  std::string renderContent() override { return html; }
  std::string html;
  int* destroyed;
};

}  // namespace

TEST(TableComponentTest, RendersHeaderRowsWithStatusCellAndNAForEmptyCells) {
  TableComponent table;
  table.addColumn("Status");
  table.addColumn("Name");
  const std::string head =
      "\n      <table class=\"data-table component-table\">\n        <thead>\n          <tr>"
      "\n            <th>Status</th>\n            <th>Name</th>\n          </tr>\n        </thead>\n        <tbody>";
  const std::string tail = "\n        </tbody>\n      </table>";
  EXPECT_EQ(table.renderContent(), head + tail);

  // Text goes out unescaped; the cell count is not checked.
  table.addRow(ComponentStatus(STATUS_WARNING, "Warning"), {"Fan 1", "", "<b>&"});
  table.addRow(ComponentStatus(STATUS_UNKNOWN, "Unknown"), {});
  EXPECT_EQ(table.renderContent(),
            head +
                "\n          <tr>\n            <td class=\"status-warning icon status\">Warning</td>"
                "\n            <td>Fan 1</td>\n            <td>N/A</td>\n            <td><b>&</td>"
                "\n          </tr>"
                "\n          <tr>\n            <td class=\"status-not-present icon status\">Unknown</td>"
                "\n          </tr>" +
                tail);
}

TEST(TableComponentTest, StatusClassesOfRowsAndSections) {
  const struct {
    ComponentStatusValue value;
    const char* row;
    const char* section;
  } cases[] = {{STATUS_NORMAL, "status-normal", " status-normal"},
               {STATUS_WARNING, "status-warning", " status-warning"},
               {STATUS_ERROR, "status-error", " status-error"},
               {STATUS_NOT_PRESENT, "status-not-present", ""}, {STATUS_UNKNOWN, "status-not-present", ""},
               {STATUS_SHIELDED, "status-not-present", ""}, {ComponentStatusValue(77), "status-not-present", ""}};
  CollapsibleComposite section;
  for (const auto& c : cases) {
    section.setStatus(c.value);
    EXPECT_EQ(TableComponent::statusToCssClass(c.value), c.row) << c.value;
    EXPECT_EQ(section.statusToCssClass(), c.section) << c.value;
  }
  section.setStatus(STATUS_ERROR);
  EXPECT_NE(section.renderContent().find("class=\"collapsible title-text status-error\">"), std::string::npos);
}

TEST(PanelComponentTest, DropsEmptyValuesAndIgnoresOtherBuilderCalls) {
  PanelComponent panel;
  EXPECT_EQ(panel.renderContent(), "\n      <div class=\"status-table panel-body\">\n      </div>");
  panel.addField("Model", "X<1>");
  panel.addField("Serial", "");
  panel.addField("", "value without label");
  panel.addColumn("ignored");
  panel.addRow(ComponentStatus(STATUS_ERROR, "x"), {"y"});
  panel.add(nullptr);
  EXPECT_EQ(panel.renderContent(),
            "\n      <div class=\"status-table panel-body\">"
            "\n        <div class=\"row\">\n          <div class=\"title\">Model</div>"
            "\n          <div class=\"value\">X<1></div>\n        </div>"
            "\n        <div class=\"row\">\n          <div class=\"title\"></div>"
            "\n          <div class=\"value\">value without label</div>\n        </div>"
            "\n      </div>");
}

TEST(HTMLCompositeTest, SectionsRenderChildrenInOrderAndDeleteEachOnce) {
  int destroyed = 0;
  {
    auto root = std::make_unique<HTMLComposite>();
    auto* section = new CollapsibleComposite;  // status never set
    section->setTitle("Fans & Power");
    section->add(new CountingLeaf("a", &destroyed));
    auto* nested = new HTMLComposite;
    nested->add(new CountingLeaf("b", &destroyed));
    nested->add(new CountingLeaf("c", &destroyed));
    section->add(nested);
    section->add(nullptr);  // a null slot is skipped when rendering and deleting
    root->add(section);
    const std::string expected =
        "\n    <button type=\"button\" class=\"collapsible title-text\">Fans & Power</button>"
        "\n    <div class=\"content\">abc\n    </div>";
    EXPECT_EQ(root->renderContent(), expected);
    EXPECT_EQ(root->renderContent(), expected);
    EXPECT_EQ(root->getNodes(), std::vector<HTMLComponent*>{section});
  }
  EXPECT_EQ(destroyed, 3);
}

// A subclass that overrides only renderContent must be rendered through it,
// wherever it sits in the tree.
TEST(HTMLCompositeTest, ChildrenOverridingOnlyRenderContentAreRenderedThroughIt) {
  struct Banner : HTMLComposite {
    std::string renderContent() override { return "<banner/>"; }
  };
  struct Framed : CollapsibleComposite {
    std::string renderContent() override { return "[" + CollapsibleComposite::renderContent() + "]"; }
  };
  HTMLComposite root;
  auto* section = new CollapsibleComposite;
  section->add(new Banner);
  auto* framed = new Framed;
  framed->setTitle("F");
  framed->add(new Banner);
  section->add(framed);
  root.add(section);
  root.add(new Banner);
  EXPECT_EQ(root.renderContent(),
            "\n    <button type=\"button\" class=\"collapsible title-text\"></button>\n    <div class=\"content\"><banner/>"
            "[\n    <button type=\"button\" class=\"collapsible title-text\">F</button>\n    <div class=\"content\">"
            "<banner/>\n    </div>]\n    </div><banner/>");
}
