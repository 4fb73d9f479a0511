#include "html/TableComponent.h"

TableComponent::TableComponent() {
  renderDirectly<TableComponent>();
}

void TableComponent::addColumn(std::string column) { columns_.push_back(std::move(column)); }

void TableComponent::addRow(ComponentStatus status, std::vector<std::string> cells) {
  rows_.emplace_back(std::move(status), std::move(cells));
}

std::string TableComponent::statusToCssClass(ComponentStatusValue status) {
  switch (status) {
    case STATUS_NORMAL: return "status-normal";
    case STATUS_WARNING: return "status-warning";
    case STATUS_ERROR: return "status-error";
    default: return "status-not-present";
  }
}

std::string TableComponent::renderContent() { return rendered(*this); }

void TableComponent::appendContent(std::string& html) const {
  html += "\n      <table class=\"data-table component-table\">\n        <thead>\n          <tr>";
  for (const std::string& column : columns_) {
    html += "\n            <th>";
    html += column;
    html += "</th>";
  }
  html += "\n          </tr>\n        </thead>\n        <tbody>";
  for (const auto& row : rows_) {
    html += "\n          <tr>\n            <td class=\"";
    html += statusToCssClass(row.first.value);
    html += " icon status\">";
    html += row.first.text;
    html += "</td>";
    for (const std::string& cell : row.second) {
      html += "\n            <td>";
      if (cell.empty()) {
        html += "N/A";
      } else {
        html += cell;
      }
      html += "</td>";
    }
    html += "\n          </tr>";
  }
  html += "\n        </tbody>\n      </table>";
}
