#pragma once

#include <string>
#include <typeinfo>
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

  // Appends renderContent() to `html`. Composites render their children
  // through this, so a whole document can grow in one buffer instead of being
  // copied once per tree level.
  void appendRendered(std::string& html);

 protected:
  using DirectRender = void (*)(HTMLComponent& self, std::string& html);
  // Declares that for an object of exactly class `type`, `render` appends what
  // renderContent() returns. An object of a subclass is still rendered
  // through renderContent(), so an override of it always counts.
  void setDirectRender(const std::type_info& type, DirectRender render);

  // The usual pairing: T's public appendContent(html) appends what its
  // renderContent() returns, and renderContent() is rendered(*this).
  template <class T>
  void renderDirectly() {
    setDirectRender(typeid(T), [](HTMLComponent& self, std::string& html) { static_cast<T&>(self).appendContent(html); });
  }
  template <class T>
  static std::string rendered(T& self) {
    std::string html;
    self.appendContent(html);
    return html;
  }

 private:
  const std::type_info* directType_ = nullptr;
  DirectRender directRender_ = nullptr;
};
