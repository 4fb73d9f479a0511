#include "html/HTMLComponent.h"

HTMLComponent::~HTMLComponent() = default;

void HTMLComponent::add(HTMLComponent*) {}

void HTMLComponent::addField(std::string, std::string) {}

void HTMLComponent::setTitle(std::string) {}

void HTMLComponent::addColumn(std::string) {}

void HTMLComponent::addRow(ComponentStatus, std::vector<std::string>) {}

void HTMLComponent::setStatus(ComponentStatusValue) {}

void HTMLComponent::appendRendered(std::string& html) {
  if (directRender_ && typeid(*this) == *directType_) {
    directRender_(*this, html);
  } else {
    html += renderContent();
  }
}

void HTMLComponent::setDirectRender(const std::type_info& type, DirectRender render) {
  directType_ = &type;
  directRender_ = render;
}
