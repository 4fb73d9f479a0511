#pragma once

#include <string>

#include "runtime/CCriticalSection.h"
#include "runtime/CRegistry.h"

// Reads single string values of the registry store below
// HKEY_LOCAL_MACHINE; one read at a time per store.
class CDataStore {
 public:
  CDataStore() = default;

  // False (out unchanged) for a null key or name, a key that cannot be
  // opened, a missing or empty value, or a failed read.
  bool Read(const char* key, const char* valueName, std::string& out);

 private:
  CCriticalSection m_Lock;
  CRegistry m_Registry;
};
