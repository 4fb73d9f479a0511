#include "html/CollapsibleComposite.h"

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
  renderInto(html);
  return html;
}

void CollapsibleComposite::renderInto(std::string& html) {
  html += "\n    <button type=\"button\" class=\"collapsible title-text";
  html += statusToCssClass();
  html += "\">";
  html += getTitle();
  html += "</button>\n    <div class=\"content\">";
  HTMLComposite::renderInto(html);
  html += "\n    </div>";
}
