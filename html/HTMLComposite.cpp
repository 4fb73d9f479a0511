#include "html/HTMLComposite.h"

#include <utility>

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
  HTMLComposite::renderInto(html);
  return html;
}

void HTMLComposite::renderInto(std::string& html) {
  for (HTMLComponent* child : children_) {
    if (child) child->renderInto(html);
  }
}
