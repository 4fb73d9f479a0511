#include "html/HTMLComposite.h"

#include <utility>

HTMLComposite::HTMLComposite() {
  setDirectRender(typeid(HTMLComposite), [](HTMLComponent& self, std::string& html) {
    static_cast<HTMLComposite&>(self).renderChildren(html);
  });
}

HTMLComposite::~HTMLComposite() {
  for (HTMLComponent*& child : children_) {
    delete child;
    child = nullptr;
  }
}

void HTMLComposite::add(HTMLComponent* child) { children_.push_back(child); }

void HTMLComposite::setTitle(std::string title) { title_ = std::move(title); }

std::string HTMLComposite::renderContent() {
  std::string html;
  renderChildren(html);
  return html;
}

void HTMLComposite::renderChildren(std::string& html) const {
  for (HTMLComponent* child : children_) {
    if (child) child->appendRendered(html);
  }
}
