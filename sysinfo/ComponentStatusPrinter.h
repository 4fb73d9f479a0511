#pragma once

#include <ostream>

#include "html/ComponentStatus.h"

// Readable failure messages for tests that compare row statuses.
inline void PrintTo(const ComponentStatus& status, std::ostream* os) {
  *os << "{" << static_cast<unsigned>(status.value) << ", \"" << status.text << "\"}";
}
