#include "html/CollapsibleComposite.h"

CollapsibleComposite::CollapsibleComposite() {
  renderDirectly<CollapsibleComposite>();
}

std::string CollapsibleComposite::statusToCssClass() const {
  switch (status_) {
    case STATUS_NORMAL: return " status-normal";
    case STATUS_WARNING: return " status-warning";
    case STATUS_ERROR: return " status-error";
    default: return "";
  }
}

std::string CollapsibleComposite::renderContent() { return rendered(*this); }

void CollapsibleComposite::appendContent(std::string& html) const {
  html += "\n    <button type=\"button\" class=\"collapsible title-text";
  html += statusToCssClass();
  html += "\">";
  html += getTitle();
  html += "</button>\n    <div class=\"content\">";
  renderChildren(html);
  html += "\n    </div>";
}
