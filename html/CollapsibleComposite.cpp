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
  std::string html = "\n    <button type=\"button\" class=\"collapsible title-text";
  html += statusToCssClass();
  html += "\">";
  html += getTitle();
  html += "</button>\n    <div class=\"content\">";
  html += HTMLComposite::renderContent();
  html += "\n    </div>";
  return html;
}
