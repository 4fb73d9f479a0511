#include "runtime/CDataStore.h"

#include <mutex>
#include <vector>

bool CDataStore::Read(const char* key, const char* valueName, std::string& out) {
  if (key == nullptr || valueName == nullptr) return false;
  std::lock_guard<CCriticalSection> guard(m_Lock);
  if (m_Registry.Open(key, CRegistry::MPLocalMachine, -1) != 0) return false;
  unsigned size = m_Registry.GetValueSize(valueName);
  if (size == 0) return false;
  std::vector<char> buffer(size + 1, '\0');  // one spare NUL for binary values
  if (m_Registry.QueryValue(buffer.data(), valueName, size) != 0) return false;
  out.assign(buffer.data());
  return true;
}
