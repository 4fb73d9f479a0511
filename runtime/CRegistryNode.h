#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "runtime/CCriticalSection.h"

// Value types of the registry store; the numbers are the ones in the file.
enum RegistryValueType : unsigned {
  REGISTRY_STRING = 1,
  REGISTRY_EXPAND_STRING = 2,
  REGISTRY_BINARY = 3,
  REGISTRY_DWORD = 4,
  REGISTRY_SUBKEY = 666,
};

// One stored value: text (without its NUL) for the string types, the raw
// bytes for binary, the number for a double word.
struct RegistryValue {
  unsigned type = 0;
  unsigned dword = 0;
  std::string text;
  std::vector<unsigned char> bytes;

  // What a query into a character buffer needs (text plus NUL, bytes, 4).
  unsigned byteSize() const;
  // Writes byteSize() bytes to out.
  void copyTo(unsigned char* out) const;
};

// One key of the in-memory registry tree: a name-sorted array of values and
// subkeys. Every access to the array holds the node's own lock; child nodes
// are heap objects, so a child pointer stays valid while its entry exists.
class CRegistryNode {
 public:
  // Deeper keys in a file are dropped rather than recursed into, so a
  // hostile file cannot exhaust the stack.
  static constexpr size_t kMaxDepth = 512;

  CRegistryNode() = default;
  ~CRegistryNode();
  CRegistryNode(const CRegistryNode&) = delete;
  CRegistryNode& operator=(const CRegistryNode&) = delete;

  // The subkey called name, or null (also when name is a value).
  CRegistryNode* findChild(const char* name) const;
  // The subkey called name, created empty when missing; null when a value of
  // that name is in the way.
  CRegistryNode* findOrCreateChild(const char* name);
  // Replaces whatever entry has this name with the given subkey.
  CRegistryNode* setChild(const char* name, std::unique_ptr<CRegistryNode> child);

  // Copy of the value called name; false for a subkey or a missing entry.
  bool getValue(const char* name, RegistryValue& out) const;
  // Replaces or adds a value (type must not be REGISTRY_SUBKEY).
  void setValue(const char* name, RegistryValue value);

  // Removes a value / a subkey with everything below it; false when absent.
  bool deleteValue(const char* name);
  bool deleteKey(const char* name);
  // Empties this node (all values and subkeys below it).
  void deleteNode(const char* name);

  // The index-th subkey / value in entry order; false past the end.
  bool subKeyAt(unsigned index, std::string& name) const;
  bool valueAt(unsigned index, std::string& name, RegistryValue& value) const;
  unsigned subKeyCount() const;
  unsigned entryCount() const;

  // Text file format. restoreNode reads this node's content up to its closing
  // empty line (or the end of the file) and is true when at least one value
  // was stored in it or below; dumpNode writes the same format.
  bool restoreNode(FILE* file);
  void dumpNode(FILE* file) const;

 private:
  struct Entry {
    std::string name;
    RegistryValue value;                   // types 1 to 4
    std::unique_ptr<CRegistryNode> child;  // REGISTRY_SUBKEY
    unsigned type() const { return child ? REGISTRY_SUBKEY : value.type; }
  };

  // Binary search; the caller holds the lock.
  std::vector<Entry>::iterator lowerBound(const char* name);
  const Entry* find(const char* name) const;
  Entry& insertOrReplace(const char* name);
  // Restoring appends unsorted and settles the order once per node, keeping
  // the last entry of each name, so a large file loads in n log n.
  void appendUnsorted(Entry entry);
  void sortKeepingLast();

  mutable CCriticalSection lock_;
  std::vector<Entry> entries_;
};
