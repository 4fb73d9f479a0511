#include "html/HTMLComponent.h"

HTMLComponent::~HTMLComponent() = default;

void HTMLComponent::add(HTMLComponent*) {}

void HTMLComponent::addField(std::string, std::string) {}

void HTMLComponent::setTitle(std::string) {}

void HTMLComponent::addColumn(std::string) {}

void HTMLComponent::addRow(ComponentStatus, std::vector<std::string>) {}

void HTMLComponent::setStatus(ComponentStatusValue) {}

void HTMLComponent::renderInto(std::string& html) { html += renderContent(); }
