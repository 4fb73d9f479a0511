#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "html/CollapsibleComposite.h"
#include "html/HTMLComposite.h"
#include "html/PanelComponent.h"
#include "html/TableComponent.h"

namespace {

// Counts destructions so ownership through the composite can be checked.
class CountingLeaf : public HTMLComponent {
 public:
  CountingLeaf(std::string html, int* destroyed) : html_(std::move(html)), destroyed_(destroyed) {}
  ~CountingLeaf() override { ++*destroyed_; }
  std::string renderContent() override { return html_; }

 private:
  std::string html_;
  int* destroyed_;
};

const char kTableHead[] =
    "\n      <table class=\"data-table component-table\">\n        <thead>\n          <tr>";
const char kTableBodyOpen[] = "\n          </tr>\n        </thead>\n        <tbody>";
const char kTableClose[] = "\n        </tbody>\n      </table>";

}  // namespace

TEST(TableComponentTest, RendersHeaderAndEmptyBodyWithoutRows) {
  TableComponent table;
  table.addColumn("Status");
  table.addColumn("Name");
  EXPECT_EQ(table.renderContent(), std::string(kTableHead) + "\n            <th>Status</th>" +
                                       "\n            <th>Name</th>" + kTableBodyOpen + kTableClose);
}

TEST(TableComponentTest, RowsCarryStatusClassTextAndCellsWithNAForEmpty) {
  TableComponent table;
  table.addRow(ComponentStatus(STATUS_WARNING, "Warning"), {"Fan 1", "", "<b>&"});
  table.addRow(ComponentStatus(STATUS_UNKNOWN, "Unknown"), {});
  EXPECT_EQ(table.renderContent(),
            std::string(kTableHead) + kTableBodyOpen +
                "\n          <tr>\n            <td class=\"status-warning icon status\">Warning</td>"
                "\n            <td>Fan 1</td>\n            <td>N/A</td>\n            <td><b>&</td>"
                "\n          </tr>"
                "\n          <tr>\n            <td class=\"status-not-present icon status\">Unknown</td>"
                "\n          </tr>" +
                kTableClose);
}

TEST(TableComponentTest, StatusClassesCoverEveryCode) {
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_NORMAL), "status-normal");
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_WARNING), "status-warning");
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_ERROR), "status-error");
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_NOT_PRESENT), "status-not-present");
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_UNKNOWN), "status-not-present");
  EXPECT_EQ(TableComponent::statusToCssClass(STATUS_SHIELDED), "status-not-present");
  EXPECT_EQ(TableComponent::statusToCssClass(static_cast<ComponentStatusValue>(77)),
            "status-not-present");
}

TEST(PanelComponentTest, DropsEmptyValuesAndKeepsOrder) {
  PanelComponent panel;
  EXPECT_EQ(panel.renderContent(),
            "\n      <div class=\"status-table panel-body\">\n      </div>");
  panel.addField("Model", "X<1>");
  panel.addField("Serial", "");
  panel.addField("", "value without label");
  EXPECT_EQ(panel.renderContent(),
            "\n      <div class=\"status-table panel-body\">"
            "\n        <div class=\"row\">\n          <div class=\"title\">Model</div>"
            "\n          <div class=\"value\">X<1></div>\n        </div>"
            "\n        <div class=\"row\">\n          <div class=\"title\"></div>"
            "\n          <div class=\"value\">value without label</div>\n        </div>"
            "\n      </div>");
}

TEST(CollapsibleCompositeTest, StatusSelectsSectionClass) {
  CollapsibleComposite section;
  section.setTitle("Fans & Power");
  EXPECT_EQ(section.renderContent(),
            "\n    <button type=\"button\" class=\"collapsible title-text\">Fans & Power</button>"
            "\n    <div class=\"content\">\n    </div>");
  const struct {
    ComponentStatusValue value;
    const char* cssClass;
  } cases[] = {{STATUS_NORMAL, " status-normal"}, {STATUS_WARNING, " status-warning"},
               {STATUS_ERROR, " status-error"},   {STATUS_NOT_PRESENT, ""},
               {STATUS_UNKNOWN, ""},              {STATUS_SHIELDED, ""}};
  for (const auto& c : cases) {
    section.setStatus(c.value);
    EXPECT_EQ(section.statusToCssClass(), c.cssClass) << c.value;
  }
  section.setStatus(STATUS_ERROR);
  EXPECT_NE(section.renderContent().find("class=\"collapsible title-text status-error\">"),
            std::string::npos);
}

TEST(HTMLCompositeTest, NestedCompositesRenderChildrenInOrderAndRepeatably) {
  HTMLComponent* outer = new CollapsibleComposite;
  outer->setTitle("Outer");
  outer->setStatus(STATUS_NORMAL);
  HTMLComponent* inner = new CollapsibleComposite;
  inner->setTitle("Inner");
  HTMLComponent* panel = new PanelComponent;
  panel->addField("A", "1");
  // Builder calls a component does not support are ignored.
  panel->addColumn("ignored");
  panel->addRow(ComponentStatus(STATUS_ERROR, "x"), {"y"});
  panel->setStatus(STATUS_ERROR);
  panel->add(nullptr);
  inner->add(panel);
  outer->add(inner);
  outer->add(new TableComponent);

  HTMLComposite root;
  EXPECT_EQ(root.renderContent(), "");
  root.add(outer);
  const std::string expected =
      "\n    <button type=\"button\" class=\"collapsible title-text status-normal\">Outer</button>"
      "\n    <div class=\"content\">"
      "\n    <button type=\"button\" class=\"collapsible title-text\">Inner</button>"
      "\n    <div class=\"content\">"
      "\n      <div class=\"status-table panel-body\">"
      "\n        <div class=\"row\">\n          <div class=\"title\">A</div>"
      "\n          <div class=\"value\">1</div>\n        </div>"
      "\n      </div>"
      "\n    </div>" +
      std::string(kTableHead) + kTableBodyOpen + kTableClose + "\n    </div>";
  EXPECT_EQ(root.renderContent(), expected);
  EXPECT_EQ(root.renderContent(), expected);
  EXPECT_EQ(root.getNodes().size(), 1u);
  EXPECT_EQ(root.getNodes()[0], outer);
}

TEST(HTMLCompositeTest, DeletesEveryChildOnceIncludingNested) {
  int destroyed = 0;
  {
    auto root = std::make_unique<HTMLComposite>();
    root->setTitle("t");
    EXPECT_EQ(root->getTitle(), "t");
    root->add(new CountingLeaf("a", &destroyed));
    auto* nested = new HTMLComposite;
    nested->add(new CountingLeaf("b", &destroyed));
    nested->add(new CountingLeaf("c", &destroyed));
    root->add(nested);
    root->add(nullptr);  // a null slot is skipped when rendering and deleting
    EXPECT_EQ(root->renderContent(), "abc");
  }
  EXPECT_EQ(destroyed, 3);
}
