#include "html/PanelComponent.h"

PanelComponent::PanelComponent() {
  renderDirectly<PanelComponent>();
}

void PanelComponent::addField(std::string name, std::string value) {
  if (value.empty()) return;
  fields_.emplace_back(std::move(name), std::move(value));
}

std::string PanelComponent::renderContent() { return rendered(*this); }

void PanelComponent::appendContent(std::string& html) const {
  html += "\n      <div class=\"status-table panel-body\">";
  for (const auto& field : fields_) {
    html += "\n        <div class=\"row\">\n          <div class=\"title\">";
    html += field.first;
    html += "</div>\n          <div class=\"value\">";
    html += field.second;
    html += "</div>\n        </div>";
  }
  html += "\n      </div>";
}
