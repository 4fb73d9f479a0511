#pragma once

#include <string>

// The frame both report pages share: a plain title line (the page itself does
// not fold) above the page's sections.
inline std::string renderPageFrame(const std::string& title, const std::string& sections) {
  return "\n  <button type=\"button\" class=\"title-text title-line\">" + title +
         "</button>\n  <div class=\"content-main\">" + sections + "\n  </div>";
}
