#pragma once

#include <string>
#include <vector>

#include "html/ComponentStatus.h"

// One node of the report tree. Pages build the tree through these base
// operations only, so every builder call is a no-op on components that do not
// support it; each node renders itself to an HTML string, unescaped.
class HTMLComponent {
 public:
  HTMLComponent() = default;
  HTMLComponent(const HTMLComponent&) = delete;
  HTMLComponent& operator=(const HTMLComponent&) = delete;

  virtual ~HTMLComponent();
  virtual void add(HTMLComponent* child);
  virtual void addField(std::string name, std::string value);
  virtual void setTitle(std::string title);
  virtual void addColumn(std::string column);
  virtual void addRow(ComponentStatus status, std::vector<std::string> cells);
  virtual void setStatus(ComponentStatusValue status);
  virtual std::string renderContent() = 0;
  // Appends the same HTML as renderContent() to `html`. Composites render
  // their children through this, so the whole document grows in one buffer
  // instead of being copied once per tree level. The default appends
  // renderContent(), which keeps leaves that only override that correct.
  virtual void renderInto(std::string& html);
};
