#include "runtime/CServerControlPaths.h"

#include "runtime/CDataStore.h"
#include "runtime/CProcess.h"
#include "runtime/CSetupPaths.h"

std::string CServerControlPaths::ProductKey() {
  CDataStore store;
  std::string key;
  // The fall-back applies only when the pointer value itself is missing; a
  // pointer to a missing key is followed (and then fails).
  if (!store.Read(CRegistry::kUuidKey, kServerControlValue, key)) key = kDefaultProductKey;
  return key;
}

bool CServerControlPaths::ReadSetupValue(const char* valueName, std::string& out) {
  std::string setupKey = ProductKey() + "\\" + "Setup";
  CDataStore store;
  return store.Read(setupKey.c_str(), valueName, out);
}

bool CServerControlPaths::GetServerControlBinPath(std::string& out) {
  bool fromRegistry = ReadSetupValue("BinRoot", out) || ReadSetupValue("FileRoot", out);
  if (!fromRegistry) CProcess::GetCurrentDir(out);
  CSetupPaths::MakeValidDirPath(out);
  return fromRegistry;
}
