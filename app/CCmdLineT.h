#pragma once

#include <cctype>
#include <map>
#include <string>

#include "app/CCmdParam.h"

// Splits a command line into switches and their values. A token is a switch
// when it opens with one of the switch characters and its second character
// is not a digit, so "-5" stays a value. A switch takes the next non-switch
// token as its value; later loose tokens join the most recent switch. A switch
// given twice keeps its first occurrence.
template <class StringT>
class CCmdLineT {
 public:
  using Param = CCmdParam<StringT>;
  using SwitchTable = std::map<StringT, Param>;
  using iterator = typename SwitchTable::iterator;

  explicit CCmdLineT(const StringT& switchChars = StringT(1, '-'), bool caseInsensitive = false)
      : m_switchChars(switchChars), m_caseInsensitive(caseInsensitive) {}

  // Returns the number of distinct switches stored.
  int SplitLine(int argc, char** argv, bool caseInsensitive) {
    m_switches.clear();
    m_caseInsensitive = caseInsensitive;
    if (argc >= 1 && argv && argv[0] && argv[0][0]) {
      StringT full(argv[0]);
      typename StringT::size_type slash = full.rfind('/');
      m_programName = slash == StringT::npos ? full : full.substr(slash + 1);
    }
    if (argc < 2 || !argv) return 0;

    bool seenSwitch = false;
    StringT lastSwitch;
    for (int i = 1; i < argc; ++i) {
      const char* token = argv[i];
      if (IsSwitch(token)) {
        Param param;
        if (i + 1 < argc && argv[i + 1] && !IsSwitch(argv[i + 1])) {
          ++i;
          // An empty argument is consumed but carries no value.
          if (argv[i][0]) param.m_strings.push_back(StringT(argv[i]));
        }
        lastSwitch = Normalised(StringT(token + 1));
        seenSwitch = true;
        m_switches.insert(typename SwitchTable::value_type(lastSwitch, param));
      } else if (seenSwitch && token) {
        iterator it = GetSwitch(lastSwitch.c_str());
        if (it != m_switches.end()) it->second.m_strings.push_back(StringT(token));
      }
    }
    return static_cast<int>(m_switches.size());
  }

  // The entry of the switch `name` (with or without its switch character),
  // or end() when it was not given or name is null.
  iterator GetSwitch(const char* name) {
    if (!name) return m_switches.end();
    StringT key = Normalised(StringT(name));
    if (!key.empty() && IsSwitchChar(key[0])) {
      if (key.size() == 1) return m_switches.end();
      return m_switches.find(key.substr(1));
    }
    return m_switches.find(key);
  }

  iterator begin() { return m_switches.begin(); }
  iterator end() { return m_switches.end(); }
  const StringT& GetProgramName() const { return m_programName; }

 private:
  bool IsSwitchChar(typename StringT::value_type c) const {
    return m_switchChars.find(c) != StringT::npos;
  }

  bool IsSwitch(const char* token) const {
    return token && token[0] && token[1] && IsSwitchChar(token[0]) &&
           !isdigit(static_cast<unsigned char>(token[1]));
  }

  StringT Normalised(StringT name) const {
    if (m_caseInsensitive) {
      for (auto& c : name) c = static_cast<typename StringT::value_type>(toupper(static_cast<unsigned char>(c)));
    }
    return name;
  }

  SwitchTable m_switches;
  StringT m_switchChars;
  StringT m_programName;
  bool m_caseInsensitive;
};
