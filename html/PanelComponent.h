#pragma once

#include <string>
#include <utility>
#include <vector>

#include "html/HTMLComponent.h"

// Label/value lines. A value that could not be read arrives empty and is left
// out, so missing data simply disappears from the page.
class PanelComponent : public HTMLComponent {
 public:
  PanelComponent();

  void addField(std::string name, std::string value) override;
  std::string renderContent() override;

 private:
  friend class HTMLComponent;  // renders through appendContent
  // Appends exactly what renderContent() of this class returns.
  void appendContent(std::string& html) const;

  std::vector<std::pair<std::string, std::string>> fields_;
};
