#pragma once

#include <string>

#include "html/HTMLComposite.h"

// The whole report file: page head with the inline style sheet, the heading
// with title and time, the pages, and the script that folds sections.
class Zentrix : public HTMLComposite {
 public:
  Zentrix() = default;
  ~Zentrix() override;

  // Builds the pages (they query the agent while rendering) and returns the
  // complete HTML document, without a final line feed.
  std::string renderContent() override;

  // Local time as "%Y-%m-%d %H:%M:%S"; empty if it cannot be formatted.
  std::string getTimestamp();
};
