#pragma once

#include <string>
#include <utility>
#include <vector>

#include "html/HTMLComponent.h"

// A table whose rows each open with a status cell (colour, icon, status text)
// followed by the row's cells; empty cells show "N/A".
class TableComponent : public HTMLComponent {
 public:
  TableComponent();

  void addColumn(std::string column) override;
  // The cell count is not checked against the columns.
  void addRow(ComponentStatus status, std::vector<std::string> cells) override;
  std::string renderContent() override;

  // The bare row class: "status-normal", "status-warning", "status-error",
  // or "status-not-present" for everything else.
  static std::string statusToCssClass(ComponentStatusValue status);

 private:
  friend class HTMLComponent;  // renders through appendContent
  // Appends exactly what renderContent() of this class returns.
  void appendContent(std::string& html) const;

  std::vector<std::string> columns_;
  std::vector<std::pair<ComponentStatus, std::vector<std::string>>> rows_;
};
