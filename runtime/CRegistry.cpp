#include "runtime/CRegistry.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "runtime/CDebug.h"
#include "runtime/CSystemRoot.h"

namespace {

const char* const kRootKeys[] = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG", "HKEY_CURRENT_USER",
                                 "HKEY_LOCAL_MACHINE", "HKEY_USERS"};

const char* shown(const char* text) { return text != nullptr ? text : "<null>"; }

// Key path components, separated by backslash or slash; empty ones dropped.
std::vector<std::string> splitPath(const char* path) {
  std::vector<std::string> parts;
  if (path == nullptr) return parts;
  std::string current;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '\\' || *p == '/') {
      if (!current.empty()) parts.push_back(current);
      current.clear();
    } else {
      current += *p;
    }
  }
  if (!current.empty()) parts.push_back(current);
  return parts;
}

std::string orvmonFile(const char* name) { return CSystemRoot::Path("/etc/orvmon") + "/" + name; }

// Copies a name into a caller buffer the Windows way: the size needed
// (with NUL) and kMoreData when it does not fit, else the length without NUL.
unsigned copyName(const std::string& name, char* out, unsigned* size) {
  if (size == nullptr) return CRegistry::kInvalidParameter;
  unsigned needed = static_cast<unsigned>(name.size() + 1);
  if (out == nullptr || *size < needed) {
    *size = needed;
    return out == nullptr ? 0 : CRegistry::kMoreData;
  }
  std::memcpy(out, name.c_str(), needed);
  *size = needed - 1;
  return 0;
}

unsigned copyValue(const RegistryValue& value, unsigned char* out, unsigned* size) {
  unsigned needed = value.byteSize();
  if (size == nullptr) return out == nullptr ? 0 : CRegistry::kInvalidParameter;
  if (out == nullptr) {
    *size = needed;
    return 0;
  }
  if (*size < needed) {
    *size = needed;
    return CRegistry::kMoreData;
  }
  value.copyTo(out);
  *size = needed;
  return 0;
}

}  // namespace

CRegistryNode* CRegistry::MPLocalMachine = nullptr;
CCriticalSection CRegistry::MSpinlock;
bool CRegistry::MIsSetup = false;
bool CRegistry::MIsDirty = false;
std::string CRegistry::MPRegistry;
std::string CRegistry::MPRegistryTemp;
std::string CRegistry::MPRegistryBackup;
std::string CRegistry::MPRegistryDefault;

CRegistryNode& CRegistry::Root() {
  static CRegistryNode* root = new CRegistryNode();  // lives to process exit
  return *root;
}

CRegistry::CRegistry() { InitClass(); }

CRegistry::CRegistry(const char* path, CRegistryNode*& parent, int flags) {
  InitClass();
  Open(path, parent, flags);
}

CRegistry::CRegistry(CRegistryNode*& node) {
  InitClass();
  m_Node = node;
  m_OpenResult = node != nullptr ? 0 : kOpenFailed;
}

CRegistry::CRegistry(const CRegistry& other)
    : m_OpenResult(other.m_OpenResult), m_Node(other.m_Node), m_Path(other.m_Path) {
  InitClass();
}

CRegistry& CRegistry::operator=(const CRegistry& other) {
  m_OpenResult = other.m_OpenResult;
  m_Node = other.m_Node;
  m_Path = other.m_Path;
  return *this;
}

CRegistry::~CRegistry() {
  FreeClass();
  Close();
}

bool CRegistry::InitClass() { return SetupTree(false); }

void CRegistry::FreeClass() {
  if (MIsDirty) SaveTree();
}

bool CRegistry::SetupTree(bool force) {
  // Checked under the lock: two first handles must not both load, as the
  // later load would free nodes the earlier one is already walking.
  std::lock_guard<CCriticalSection> guard(MSpinlock);
  if (MIsSetup && !force) return true;
  g_Debug.Print(2, "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n", force ? 1 : 0,
                MIsSetup ? 1 : 0, MIsDirty ? 1 : 0);
  try {
    MPRegistry = orvmonFile("registry");
    MPRegistryBackup = orvmonFile("registry.old");
    MPRegistryTemp = orvmonFile("registry.new");
    MPRegistryDefault = orvmonFile("registry.default");

    // Every file is read into the tree itself, its entries replacing those
    // of the same name or added: keys of a file that counts as unreadable
    // (no values) stay, and a forced load adds to what is there.
    CRegistryNode& root = Root();
    if (!ReadTree(MPRegistry.c_str(), root)) {
      g_Debug.Print(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n", MPRegistry.c_str());
      if (!ReadTree(MPRegistryBackup.c_str(), root)) {
        g_Debug.Print(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying default\n",
                      MPRegistryBackup.c_str());
        if (!ReadTree(MPRegistryDefault.c_str(), root)) {
          g_Debug.Print(1, "CRegistry: ERROR: Could not restore tree from \"%s\", restoring failed\n",
                        MPRegistryDefault.c_str());
        }
      }
    }

    MPLocalMachine = root.findChild("HKEY_LOCAL_MACHINE");
    if (MPLocalMachine == nullptr) {
      g_Debug.Print(1, "CRegistry::InitClass() : re-initialize the registry-tree\n");
      for (const char* key : kRootKeys) root.findOrCreateChild(key);
      MPLocalMachine = root.findChild("HKEY_LOCAL_MACHINE");
    }
    MIsSetup = true;
  } catch (const std::exception&) {
    g_Debug.Print(1, "CRegistry: SetupTree(): ## ERROR during Setup\n");
    return false;
  }
  return true;
}

bool CRegistry::ReadTree(const char* path, CRegistryNode& root) {
  if (path == nullptr) {
    g_Debug.Print(1, "CRegistry: ERROR: Empty file path");
    return false;
  }
  FILE* file = std::fopen(path, "r");
  if (file == nullptr) {
    g_Debug.Print(1, "CRegistry: WARNING: Could not open \"%s\"\n", path);
    return false;
  }
  std::unique_ptr<FILE, int (*)(FILE*)> closer(file, &std::fclose);
  struct stat info {};
  if (fstat(fileno(file), &info) != 0 || info.st_size <= 0) {
    g_Debug.Print(1, "CRegistry: WARNING: The length of \"%s\" is not sufficient\n", path);
    return false;
  }
  if (!root.restoreNode(file)) {
    g_Debug.Print(1, "CRegistry: WARNING: Node restoring from \"%s\" failed - check the content of this file\n",
                  path);
    return false;
  }
  return true;
}

bool CRegistry::SaveTree() {
  std::lock_guard<CCriticalSection> guard(MSpinlock);
  FILE* file = std::fopen(MPRegistryTemp.c_str(), "w");
  if (file == nullptr) {
    // Deliberately not retried: the change is dropped, not saved later.
    g_Debug.Print(1, "CRegistry: ERROR: Cannot open \"%s\" for writing\n", MPRegistryTemp.c_str());
    MIsDirty = false;
    return false;
  }
  Root().dumpNode(file);
  std::fclose(file);

  // Keep the last good file as the backup, unless it is missing or empty.
  struct stat info {};
  if (stat(MPRegistry.c_str(), &info) == 0 && info.st_size > 0) {
    std::rename(MPRegistry.c_str(), MPRegistryBackup.c_str());
  }
  std::rename(MPRegistryTemp.c_str(), MPRegistry.c_str());
  chmod(MPRegistry.c_str(), 0644);
  g_Debug.Print(2, "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]", MPRegistryTemp.c_str(),
                MPRegistry.c_str());
  MIsDirty = false;
  return true;
}

unsigned CRegistry::Open(const char* path, CRegistryNode* parent, int /*flags*/) {
  g_Debug.Print(4, "\nCRegistry::Open \"%s\", hKey = %d\n", shown(path),
                static_cast<int>(reinterpret_cast<uintptr_t>(parent)));
  Close();
  try {
    m_Path = path != nullptr ? path : "";
    CRegistryNode* node = parent != nullptr ? parent : &Root();
    for (const std::string& component : splitPath(path)) {
      node = node->findChild(component.c_str());
      if (node == nullptr) break;
    }
    if (node != nullptr) {
      m_Node = node;
      m_OpenResult = 0;
      return 0;
    }
  } catch (const std::exception&) {
    g_Debug.Print(1, "\nCRegistry::Open ##ERROR while opening !!!\n");
  }
  Close();
  return m_OpenResult;
}

void CRegistry::Close() {
  m_Node = nullptr;
  m_OpenResult = kOpenFailed;
  m_Path.clear();
}

unsigned CRegistry::GetValueSize(const char* name, CRegistryNode* node) {
  CRegistryNode* target = Target(node);
  RegistryValue value;
  if (target == nullptr || !target->getValue(name, value)) return 0;
  return value.byteSize();
}

unsigned CRegistry::QueryValue(char* buf, const char* name, unsigned* size, CRegistryNode* node) {
  if (size == nullptr) {
    g_Debug.Print(1, "CRegistry::QueryValue: ** ERROR **  pdwCount is a NULL pointer\n");
    return kInvalidParameter;
  }
  CRegistryNode* target = Target(node);
  if (target == nullptr) return kInvalidHandle;
  RegistryValue value;
  if (!target->getValue(name, value)) return kFileNotFound;
  return copyValue(value, reinterpret_cast<unsigned char*>(buf), size);
}

unsigned CRegistry::QueryValue(char* buf, const char* name, unsigned size, CRegistryNode* node) {
  return QueryValue(buf, name, &size, node);
}

unsigned CRegistry::QueryValue(unsigned* out, const char* name, CRegistryNode* node) {
  if (out == nullptr) return kInvalidParameter;
  CRegistryNode* target = Target(node);
  if (target == nullptr) return kInvalidHandle;
  RegistryValue value;
  if (!target->getValue(name, value)) return kFileNotFound;
  if (value.type != REGISTRY_DWORD) return kInvalidData;
  *out = value.dword;
  return 0;
}

unsigned CRegistry::QueryValue(std::string& out, const char* name, CRegistryNode* node) {
  CRegistryNode* target = Target(node);
  if (target == nullptr) return kInvalidHandle;
  RegistryValue value;
  if (!target->getValue(name, value)) return kFileNotFound;
  if (value.type != REGISTRY_STRING && value.type != REGISTRY_EXPAND_STRING) return kInvalidData;
  out = value.text;
  return 0;
}

bool CRegistry::SetValue(const char* name, const unsigned char* data, unsigned size, unsigned type,
                         CRegistryNode* node) {
  g_Debug.Print(2, "CRegistry::SetValue \"%s\" %d %d\n", shown(name), static_cast<int>(size), static_cast<int>(type));
  MIsDirty = true;
  CRegistryNode* target = Target(node);
  if (target == nullptr || name == nullptr) return false;
  if (data == nullptr && size > 0) return false;
  RegistryValue value;
  value.type = type;
  switch (type) {
    case REGISTRY_BINARY:
      if (size > 0) value.bytes.assign(data, data + size);
      break;
    case REGISTRY_STRING:
    case REGISTRY_EXPAND_STRING:
      // Stored as a C string: the text ends at the first NUL.
      if (size > 0) value.text.assign(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
      break;
    case REGISTRY_DWORD:
      if (size != sizeof(unsigned)) return false;
      std::memcpy(&value.dword, data, sizeof(unsigned));
      break;
    default:
      return false;
  }
  target->setValue(name, std::move(value));
  g_Debug.Print(2, "CRegistry::SetValue oEntry = %p\n", static_cast<void*>(target));
  return true;
}

bool CRegistry::SetValue(const char* name, unsigned dword) {
  return SetValue(name, reinterpret_cast<const unsigned char*>(&dword), sizeof dword, REGISTRY_DWORD);
}

bool CRegistry::SetValue(const char* name, const char* text) {
  if (text == nullptr) return false;
  return SetValue(name, reinterpret_cast<const unsigned char*>(text), static_cast<unsigned>(std::strlen(text)),
                  REGISTRY_STRING);
}

unsigned CRegistry::CreateKey(CRegistryNode* parent, const char* path, bool /*volatileKey*/, int /*flags*/) {
  g_Debug.Print(2, "CRegistry::CreateKey \"%s\"\n", shown(path));
  Close();
  std::vector<std::string> components = splitPath(path);
  if (components.size() > CRegistryNode::kMaxDepth) return kOpenFailed;
  CRegistryNode* node = parent != nullptr ? parent : &Root();
  for (const std::string& component : components) {
    node = node->findOrCreateChild(component.c_str());
    if (node == nullptr) return kOpenFailed;
  }
  m_Node = node;
  m_Path = path != nullptr ? path : "";
  m_OpenResult = 0;
  return 0;
}

unsigned CRegistry::DeleteValue(const char* name) {
  g_Debug.Print(2, "CRegistry::DeleteValue \"%s\"\n", shown(name));
  if (m_Node == nullptr) return kInvalidHandle;
  return m_Node->deleteValue(name) ? 0 : kFileNotFound;
}

unsigned CRegistry::DeleteKey(const char* name) {
  g_Debug.Print(2, "CRegistry::DeleteKey \"%s\"\n", shown(name));
  if (m_Node == nullptr) return kInvalidHandle;
  return m_Node->deleteKey(name) ? 0 : kFileNotFound;
}

unsigned CRegistry::EnumKey(char* name, unsigned* nameSize, unsigned index, char* cls, unsigned* clsSize) {
  if (m_Node == nullptr) return kInvalidHandle;
  std::string key;
  if (!m_Node->subKeyAt(index, key)) return kNoMoreItems;
  // Keys carry no class text.
  if (cls != nullptr && clsSize != nullptr && *clsSize > 0) cls[0] = '\0';
  if (clsSize != nullptr) *clsSize = 0;
  return copyName(key, name, nameSize);
}

unsigned CRegistry::EnumKey(char* name, unsigned nameSize, unsigned index, char* cls, unsigned clsSize) {
  return EnumKey(name, &nameSize, index, cls, &clsSize);
}

unsigned CRegistry::EnumVal(char* name, unsigned* nameSize, unsigned index, unsigned* type, unsigned char* data,
                            unsigned* dataSize) {
  if (m_Node == nullptr) return kInvalidHandle;
  std::string valueName;
  RegistryValue value;
  if (!m_Node->valueAt(index, valueName, value)) return kNoMoreItems;
  if (type != nullptr) *type = value.type;
  unsigned result = copyName(valueName, name, nameSize);
  unsigned dataResult = copyValue(value, data, dataSize);
  return result != 0 ? result : dataResult;
}

unsigned CRegistry::EnumVal(char* name, unsigned nameSize, unsigned index, unsigned* type, unsigned char* data,
                            unsigned dataSize) {
  return EnumVal(name, &nameSize, index, type, data, &dataSize);
}

unsigned CRegistry::NoOfSubKeys(unsigned* count) {
  if (count == nullptr) return kInvalidParameter;
  if (m_Node == nullptr) return kInvalidHandle;
  *count = m_Node->subKeyCount();
  return 0;
}

unsigned CRegistry::OpenPointerKey(const char* path, const char* valueName, CRegistryNode* parent, int flags) {
  g_Debug.Print(2, "CRegistry::OpenPointer \"%s\"\n", shown(path));
  if (Open(path, parent, flags) != 0) return m_OpenResult;
  std::string target;
  if (QueryValue(target, valueName) != 0) {
    Close();
    return m_OpenResult;
  }
  return Open(target.c_str(), parent, flags);
}

unsigned CRegistry::OpenUUIDPointer(const char* uuid, const char* valueName, int flags) {
  if (uuid == nullptr) return kOpenFailed;
  std::string path = std::string("SYSTEM\\CurrentControlSet\\Control\\UUID\\") + uuid;
  return OpenPointerKey(path.c_str(), valueName, MPLocalMachine, flags);
}

bool CRegistry::GetProductRegistryRoot(std::string& out, const char* valueName) {
  CRegistry registry;
  if (registry.Open(kUuidKey, MPLocalMachine, -1) != 0) return false;
  return registry.QueryValue(out, valueName) == 0;
}
