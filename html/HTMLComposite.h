#pragma once

#include <string>
#include <vector>

#include "html/HTMLComponent.h"

// A component with children, rendered one after the other. The composite owns
// its children (created with new by the builders) and deletes them.
class HTMLComposite : public HTMLComponent {
 public:
  HTMLComposite();
  ~HTMLComposite() override;

  void add(HTMLComponent* child) override;
  void setTitle(std::string title) override;
  std::string renderContent() override;

  std::string getTitle() const { return title_; }
  // The child pointers; ownership stays with the composite.
  std::vector<HTMLComponent*> getNodes() const { return children_; }

 protected:
  // Appends the children's HTML to `html`, in insertion order.
  void renderChildren(std::string& html) const;

 private:
  std::vector<HTMLComponent*> children_;
  std::string title_;
};
