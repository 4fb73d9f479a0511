#pragma once

#include <string>

// Status codes exactly as the agent and the text maps deliver them; an
// overall status read from the agent is passed through unconverted.
enum ComponentStatusValue : unsigned int {
  STATUS_UNKNOWN = 0,
  STATUS_NORMAL = 1,
  STATUS_WARNING = 2,
  STATUS_ERROR = 3,
  STATUS_NOT_PRESENT = 4,
  STATUS_SHIELDED = 5,  // drawn like "not present"
};

// The status of one table row: the colour and the words in its first cell.
struct ComponentStatus {
  ComponentStatusValue value = STATUS_UNKNOWN;
  std::string text;

  ComponentStatus() = default;
  ComponentStatus(ComponentStatusValue v, std::string t) : value(v), text(std::move(t)) {}
  // Unit tests compare map answers field by field.
  bool operator==(const ComponentStatus& other) const {
    return value == other.value && text == other.text;
  }
};
