#include "pages/Zentrix.h"

#include <ctime>

#include "html/StatusIcons.h"
#include "pages/ZentrixHealth.h"
#include "pages/ZentrixInformation.h"
#include "runtime/LocalTime.h"

namespace {

std::string StatusIconRule(const char* selector, const char* icon) {
  return std::string(selector) + "{background-image:url(data:image/png;base64," + icon +
         ");background-repeat:no-repeat;background-position:left center;margin-left:15px}";
}

// Minified: the rules follow each other with no blanks between them.
std::string StyleSheet() {
  std::string css =
      ".collapsible{padding:18px;width:100%;border:none;text-align:left;outline:0}"
      ".collapsible:after{content:\"\\02C3\";color:#000;font-weight:700;float:left;margin-left:5px;"
      "padding-right:5px;font-size:20px}"
      ".active:after{content:\"\\02C5\"}"
      ".content-main{padding:0 18px;transition:max-height .2s ease-out}"
      ".content{padding:0 18px;max-height:0;overflow:hidden;transition:max-height .2s ease-out}"
      ".title-app{padding-bottom:15px;border-bottom:1px solid #b7b7b7;display:flex;padding-bottom:0}"
      ".title-app>h2{font-size:22px;font-weight:700;font-family:\"Segoe UI\",sans-serif}"
      ".title-app>h3{font-size:16px;font-weight:600;font-family:\"Segoe UI\",sans-serif;"
      "margin-left:10px;padding-top:8px}"
      ".title-text{font-size:14px;font-weight:700;font-family:\"Segoe UI\",sans-serif;line-height:15px;"
      "border-bottom:1px solid #b7b7b7;background-color:#fff}"
      ".title-line{width:100%;border:none;text-align:left;outline:0;font-size:15px;"
      "font:bold 18px \"Segoe UI\",sans-serif;margin:0;padding:15px 20px;border-bottom:1px solid #b7b7b7}"
      ".status-table{display:table-cell;padding-top:15px;padding-bottom:1px}"
      ".status-table .title{font-weight:700;margin-left:0;padding-left:0}"
      ".status-table .value{padding-left:12px}"
      ".status-table .row>div{display:table-cell;padding-top:1px;padding-bottom:1px}"
      ".panel-body{color:#232323;font-size:14px;font-weight:400;font-family:\"Segoe UI\",sans-serif;"
      "border-width:0;border-style:solid;padding-bottom:20px;padding-left:20px}"
      ".status-table .row{display:table-row}"
      ".data-table thead{background-color:#d1d1d1;width:100%;padding-left:15px;margin-top:10px}"
      "table{border-collapse:separate;text-indent:initial;border-spacing:2px}"
      ".data-table{width:100%;margin-bottom:20px;margin-top:10px;border-collapse:collapse;"
      "border-spacing:0}"
      ".data-table *{table-layout:fixed}"
      ".data-table th{background-color:#eee;text-align:left;padding:10px;border-right:1px solid #d5d5d5}"
      ".data-table td{text-align:left;white-space:nowrap;padding:3px 10px 4px 10px;"
      "border-bottom:1px solid #eee;border-right:1px solid #d5d5d5;"
      "font:normal 13px/15px \"Segoe UI\",sans-serif}"
      "th{display:table-cell;vertical-align:inherit;font-weight:700;text-align:-internal-center;"
      "font:bold 14px \"Segoe UI\",sans-serif}"
      "tr{display:table-row;vertical-align:inherit;border-color:inherit}"
      ".data-table td.icon{padding-left:30px}"
      ".data-table td:last-child,.data-table th:last-child{border-right:0}";
  css += StatusIconRule(".status-normal", StatusIcons::kNormal);
  css += StatusIconRule(".status-warning", StatusIcons::kWarning);
  css += StatusIconRule(".status-error", StatusIcons::kError);
  css += StatusIconRule(".status-not-present", StatusIcons::kNotPresent);
  css += ".icon{width:22px;min-height:16px;background-position:left 10px center}";
  return css;
}

// Opens a section on click and grows every enclosing open section by the
// same height, so nested sections are not clipped by their parents.
const char kScript[] =
    "var collapsibleElements=document.getElementsByClassName(\"collapsible\"),i;"
    "for(i=0;i<collapsibleElements.length;i++)collapsibleElements[i].addEventListener(\"click\","
    "(function(){var content=this.nextElementSibling;this.classList.toggle(\"active\"),"
    "content.style.maxHeight?(console.log(content.style.maxHeight),content.style.maxHeight=null):"
    "content.style.maxHeight=content.scrollHeight+\"px\";"
    "for(var parent=content;parent=parent.parentElement;)if(parent.classList.contains(\"content\"))"
    "{var newHeight=parseInt(parent.style.maxHeight.replace(\"px\",\"\"))+content.scrollHeight;"
    "parent.style.maxHeight=newHeight+\"px\"}}));";

}  // namespace

Zentrix::~Zentrix() = default;

std::string Zentrix::getTimestamp() {
  char buffer[100];
  size_t length = FormatLocalTime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", time(nullptr));
  return std::string(buffer, length);
}

std::string Zentrix::renderContent() {
  setTitle("Zentrix");
  // The information and health pages are added here, in that order.
  add(new ZentrixInformation);
  add(new ZentrixHealth);

  std::string html =
      "<!DOCTYPE html>\n<html>\n\n<head>\n"
      "  <meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "  <style>\n    ";
  html += StyleSheet();
  html += "\n  </style>\n</head>\n\n<body>\n  <div class=\"title-app\">\n    <h2>";
  html += getTitle();
  html += "</h2>\n    <h3>";
  html += getTimestamp();
  html += "</h3>\n  </div>";
  renderChildren(html);
  html += "\n  <script>\n    ";
  html += kScript;
  html += "\n  </script>\n</body>\n\n</html>";
  return html;
}
