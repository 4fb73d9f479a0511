#pragma once

#include <string>

// The frame both report pages share: a plain title line (the page itself does
// not fold) above the page's sections, which the page appends in between.
inline void openPageFrame(std::string& html, const std::string& title) {
  html += "\n  <button type=\"button\" class=\"title-text title-line\">";
  html += title;
  html += "</button>\n  <div class=\"content-main\">";
}

inline void closePageFrame(std::string& html) { html += "\n  </div>"; }
