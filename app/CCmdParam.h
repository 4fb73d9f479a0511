#pragma once

#include <string>
#include <vector>

// The values that followed one switch on the command line, in order.
template <class StringT = std::string>
class CCmdParam {
 public:
  std::vector<StringT> m_strings;
};
