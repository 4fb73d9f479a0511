#pragma once

#include <string>

#include "runtime/CCriticalSection.h"
#include "runtime/CRegistryNode.h"

// A handle on one key of the suite's registry store: a process-wide tree of
// keys and typed values, loaded from "/etc/orvmon/registry" (or its backup,
// or its default) on first use and written back when a handle is destroyed
// after a change. Results follow the Windows registry: 0 is success.
class CRegistry {
 public:
  // Open result of a handle that holds no key.
  static constexpr unsigned kOpenFailed = 0xFFFFFFFFu;
  // Failure codes of the query, enumeration and delete operations.
  static constexpr unsigned kFileNotFound = 2;
  static constexpr unsigned kInvalidHandle = 6;
  static constexpr unsigned kInvalidData = 13;
  static constexpr unsigned kInvalidParameter = 87;
  static constexpr unsigned kMoreData = 234;
  static constexpr unsigned kNoMoreItems = 259;

  // Key of the suite's product pointers below HKEY_LOCAL_MACHINE.
  static constexpr const char* kUuidKey =
      "SYSTEM\\CurrentControlSet\\Control\\UUID\\C3681B60-0D26-11D3-8319-00A0C9B61E25";

  CRegistry();
  CRegistry(const char* path, CRegistryNode*& parent, int flags);
  explicit CRegistry(CRegistryNode*& node);
  CRegistry(const CRegistry& other);
  CRegistry& operator=(const CRegistry& other);
  ~CRegistry();

  // Opens path below parent (the root keys when parent is null); components
  // are separated by "\" or "/". 0, or kOpenFailed with no key open.
  unsigned Open(const char* path, CRegistryNode* parent, int flags);
  void Close();
  void KeepKeyHandle() {}
  CRegistryNode* GetNode() const { return m_Node; }
  unsigned GetOpenResult() const { return m_OpenResult; }

  // Values are read from node when given, else from the open key.
  unsigned GetValueSize(const char* name, CRegistryNode* node = nullptr);
  unsigned QueryValue(char* buf, const char* name, unsigned* size, CRegistryNode* node = nullptr);
  unsigned QueryValue(char* buf, const char* name, unsigned size, CRegistryNode* node = nullptr);
  unsigned QueryValue(unsigned* value, const char* name, CRegistryNode* node = nullptr);
  unsigned QueryValue(std::string& value, const char* name, CRegistryNode* node = nullptr);

  bool SetValue(const char* name, const unsigned char* data, unsigned size, unsigned type,
                CRegistryNode* node = nullptr);
  bool SetValue(const char* name, unsigned dword);
  bool SetValue(const char* name, const char* text);

  // Opens path, creating missing components as empty keys. Does not mark
  // the tree changed: the new keys reach the file with the next SetValue.
  unsigned CreateKey(CRegistryNode* parent, const char* path, bool volatileKey = false, int flags = -1);
  unsigned DeleteValue(const char* name);
  unsigned DeleteKey(const char* name);

  unsigned EnumKey(char* name, unsigned* nameSize, unsigned index, char* cls, unsigned* clsSize);
  unsigned EnumKey(char* name, unsigned nameSize, unsigned index, char* cls, unsigned clsSize);
  unsigned EnumVal(char* name, unsigned* nameSize, unsigned index, unsigned* type, unsigned char* data,
                   unsigned* dataSize);
  unsigned EnumVal(char* name, unsigned nameSize, unsigned index, unsigned* type, unsigned char* data,
                   unsigned dataSize);
  unsigned NoOfSubKeys(unsigned* count);

  // Reads the string value valueName of key path and opens the key it names
  // (below the same parent).
  unsigned OpenPointerKey(const char* path, const char* valueName, CRegistryNode* parent, int flags);
  // The same for the pointer key of a product UUID below kUuidKey's parent.
  unsigned OpenUUIDPointer(const char* uuid, const char* valueName, int flags);

  // The string value valueName of kUuidKey below HKEY_LOCAL_MACHINE.
  static bool GetProductRegistryRoot(std::string& out, const char* valueName);

  static bool InitClass();
  static void FreeClass();
  // Loads the tree (once, or again when forced). The files are read into
  // the tree in place: a root key a file holds replaces the one in memory
  // (keys open below the old one become invalid), the others stay.
  static bool SetupTree(bool force);
  static bool ReadTree(const char* path, CRegistryNode& root);
  static bool SaveTree();

  // The HKEY_LOCAL_MACHINE node, passed as parent by callers.
  static CRegistryNode* MPLocalMachine;

 private:
  static CRegistryNode& Root();

  static CCriticalSection MSpinlock;
  static bool MIsSetup;
  static bool MIsDirty;
  static std::string MPRegistry;
  static std::string MPRegistryTemp;
  static std::string MPRegistryBackup;
  static std::string MPRegistryDefault;

  CRegistryNode* Target(CRegistryNode* node) const { return node != nullptr ? node : m_Node; }

  unsigned m_OpenResult = kOpenFailed;
  CRegistryNode* m_Node = nullptr;
  std::string m_Path;
};
