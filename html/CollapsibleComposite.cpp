#include "html/CollapsibleComposite.h"

CollapsibleComposite::CollapsibleComposite() {
  setDirectRender(typeid(CollapsibleComposite), [](HTMLComponent& self, std::string& html) {
    static_cast<CollapsibleComposite&>(self).appendContent(html);
  });
}

std::string CollapsibleComposite::statusToCssClass() const {
  switch (status_) {
    case STATUS_NORMAL: return " status-normal";
    case STATUS_WARNING: return " status-warning";
    case STATUS_ERROR: return " status-error";
    default: return "";
  }
}

std::string CollapsibleComposite::renderContent() {
  std::string html;
  appendContent(html);
  return html;
}

void CollapsibleComposite::appendContent(std::string& html) const {
  html += "\n    <button type=\"button\" class=\"collapsible title-text";
  html += statusToCssClass();
  html += "\">";
  html += getTitle();
  html += "</button>\n    <div class=\"content\">";
  renderChildren(html);
  html += "\n    </div>";
}
