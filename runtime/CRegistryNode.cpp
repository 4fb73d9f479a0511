#include "runtime/CRegistryNode.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "runtime/CDebug.h"
#include "runtime/CStrMap.h"

namespace {

// Lines longer than this are read in pieces, as the file format always did.
constexpr int kLineBuffer = 1024;

bool startsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// "=d=" value: signed or unsigned decimal, kept as its low 32 bits.
bool parseDword(const char* text, unsigned& out) {
  char* end = nullptr;
  errno = 0;
  long long number = std::strtoll(text, &end, 10);
  if (end == text) return false;
  out = static_cast<unsigned>(number);
  return true;
}

// "=b=" value: hexadecimal numbers separated by blanks, one byte each.
std::vector<unsigned char> parseBytes(const char* text) {
  std::vector<unsigned char> bytes;
  const char* cursor = text;
  for (;;) {
    char* end = nullptr;
    unsigned long number = std::strtoul(cursor, &end, 16);
    if (end == cursor) break;
    bytes.push_back(static_cast<unsigned char>(number));
    cursor = end;
  }
  return bytes;
}

// Parses one value line; false for lines without "=" or with an unknown
// marker, which the reader skips.
bool parseValueLine(const char* line, std::string& name, RegistryValue& value) {
  const char* equals = std::strchr(line, '=');
  if (equals == nullptr) return false;
  name.assign(line, static_cast<size_t>(equals - line));
  if (startsWith(equals, "=s=")) {
    value.type = REGISTRY_STRING;
    value.text = equals + 3;
  } else if (startsWith(equals, "=es=")) {
    value.type = REGISTRY_EXPAND_STRING;
    value.text = equals + 4;
  } else if (startsWith(equals, "=d=")) {
    value.type = REGISTRY_DWORD;
    if (!parseDword(equals + 3, value.dword)) return false;
  } else if (startsWith(equals, "=b=")) {
    value.type = REGISTRY_BINARY;
    value.bytes = parseBytes(equals + 3);
  } else {
    return false;
  }
  return true;
}

}  // namespace

unsigned RegistryValue::byteSize() const {
  switch (type) {
    case REGISTRY_STRING:
    case REGISTRY_EXPAND_STRING:
      return static_cast<unsigned>(text.size() + 1);
    case REGISTRY_BINARY:
      return static_cast<unsigned>(bytes.size());
    case REGISTRY_DWORD:
      return sizeof(unsigned);
    default:
      return 0;
  }
}

void RegistryValue::copyTo(unsigned char* out) const {
  switch (type) {
    case REGISTRY_STRING:
    case REGISTRY_EXPAND_STRING:
      std::memcpy(out, text.c_str(), text.size() + 1);
      break;
    case REGISTRY_BINARY:
      if (!bytes.empty()) std::memcpy(out, bytes.data(), bytes.size());
      break;
    case REGISTRY_DWORD:
      std::memcpy(out, &dword, sizeof dword);
      break;
    default:
      break;
  }
}

CRegistryNode::~CRegistryNode() = default;

std::vector<CRegistryNode::Entry>::iterator CRegistryNode::lowerBound(const char* name) {
  return std::lower_bound(entries_.begin(), entries_.end(), name,
                          [](const Entry& entry, const char* key) { return CStrMap::less(entry.name.c_str(), key); });
}

const CRegistryNode::Entry* CRegistryNode::find(const char* name) const {
  if (name == nullptr) return nullptr;
  auto it = const_cast<CRegistryNode*>(this)->lowerBound(name);
  if (it == entries_.end() || CStrMap::compare(it->name.c_str(), name) != 0) return nullptr;
  return &*it;
}

CRegistryNode::Entry& CRegistryNode::insertOrReplace(const char* name) {
  auto it = lowerBound(name);
  if (it != entries_.end() && CStrMap::compare(it->name.c_str(), name) == 0) {
    it->value = RegistryValue();
    it->child.reset();
    return *it;
  }
  Entry entry;
  entry.name = name;
  return *entries_.insert(it, std::move(entry));
}

void CRegistryNode::appendUnsorted(Entry entry) { entries_.push_back(std::move(entry)); }

void CRegistryNode::sortKeepingLast() {
  std::stable_sort(entries_.begin(), entries_.end(), [](const Entry& left, const Entry& right) {
    return CStrMap::less(left.name.c_str(), right.name.c_str());
  });
  std::vector<Entry> unique;
  unique.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i) {
    bool lastOfName = i + 1 == entries_.size() || entries_[i].name != entries_[i + 1].name;
    if (lastOfName) unique.push_back(std::move(entries_[i]));
  }
  entries_.swap(unique);
}

CRegistryNode* CRegistryNode::findChild(const char* name) const {
  std::lock_guard<CCriticalSection> guard(lock_);
  const Entry* entry = find(name);
  return entry != nullptr ? entry->child.get() : nullptr;
}

CRegistryNode* CRegistryNode::findOrCreateChild(const char* name) {
  if (name == nullptr) return nullptr;
  std::lock_guard<CCriticalSection> guard(lock_);
  const Entry* existing = find(name);
  if (existing != nullptr) return existing->child.get();
  Entry& entry = insertOrReplace(name);
  entry.child = std::make_unique<CRegistryNode>();
  return entry.child.get();
}

CRegistryNode* CRegistryNode::setChild(const char* name, std::unique_ptr<CRegistryNode> child) {
  if (name == nullptr || !child) return nullptr;
  std::lock_guard<CCriticalSection> guard(lock_);
  Entry& entry = insertOrReplace(name);
  entry.child = std::move(child);
  return entry.child.get();
}

bool CRegistryNode::getValue(const char* name, RegistryValue& out) const {
  std::lock_guard<CCriticalSection> guard(lock_);
  const Entry* entry = find(name);
  if (entry == nullptr || entry->child) return false;
  out = entry->value;
  return true;
}

void CRegistryNode::setValue(const char* name, RegistryValue value) {
  if (name == nullptr || value.type == REGISTRY_SUBKEY) return;
  std::lock_guard<CCriticalSection> guard(lock_);
  insertOrReplace(name).value = std::move(value);
}

bool CRegistryNode::deleteValue(const char* name) {
  std::lock_guard<CCriticalSection> guard(lock_);
  const Entry* entry = find(name);
  if (entry == nullptr || entry->child) return false;
  entries_.erase(entries_.begin() + (entry - entries_.data()));
  return true;
}

bool CRegistryNode::deleteKey(const char* name) {
  std::lock_guard<CCriticalSection> guard(lock_);
  const Entry* entry = find(name);
  if (entry == nullptr || !entry->child) return false;
  entry->child->deleteNode(name);
  entries_.erase(entries_.begin() + (entry - entries_.data()));
  return true;
}

void CRegistryNode::deleteNode(const char* name) {
  g_Debug.Print(2, "CRegistryNode::deleteNode \"%s\"\n", name != nullptr ? name : "<null>");
  std::vector<Entry> doomed;
  {
    std::lock_guard<CCriticalSection> guard(lock_);
    doomed.swap(entries_);
  }
}

bool CRegistryNode::subKeyAt(unsigned index, std::string& name) const {
  std::lock_guard<CCriticalSection> guard(lock_);
  for (const Entry& entry : entries_) {
    if (!entry.child) continue;
    if (index-- == 0) {
      name = entry.name;
      return true;
    }
  }
  return false;
}

bool CRegistryNode::valueAt(unsigned index, std::string& name, RegistryValue& value) const {
  std::lock_guard<CCriticalSection> guard(lock_);
  for (const Entry& entry : entries_) {
    if (entry.child) continue;
    if (index-- == 0) {
      name = entry.name;
      value = entry.value;
      return true;
    }
  }
  return false;
}

unsigned CRegistryNode::subKeyCount() const {
  std::lock_guard<CCriticalSection> guard(lock_);
  return static_cast<unsigned>(std::count_if(entries_.begin(), entries_.end(),
                                             [](const Entry& entry) { return entry.child != nullptr; }));
}

unsigned CRegistryNode::entryCount() const {
  std::lock_guard<CCriticalSection> guard(lock_);
  return static_cast<unsigned>(entries_.size());
}

bool CRegistryNode::restoreNode(FILE* file) {
  // An explicit stack instead of recursion: every "[name]" line opens a
  // child, every empty line closes the innermost open node.
  std::vector<CRegistryNode*> open{this};
  size_t droppedLevels = 0;  // open keys beyond kMaxDepth, content ignored
  bool stored = false;
  char line[kLineBuffer];

  std::lock_guard<CCriticalSection> guard(lock_);
  auto close = [&open]() {
    std::lock_guard<CCriticalSection> childGuard(open.back()->lock_);
    open.back()->sortKeepingLast();
    open.pop_back();
  };
  while (!open.empty() && std::fgets(line, sizeof line, file) != nullptr) {
    size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n') line[--length] = '\0';
    if (length == 0) {
      if (droppedLevels > 0) --droppedLevels;
      else close();
      continue;
    }
    const char* closing = line[0] == '[' ? std::strchr(line + 1, ']') : nullptr;
    if (closing != nullptr) {
      if (droppedLevels > 0 || open.size() > kMaxDepth) {
        ++droppedLevels;
        continue;
      }
      Entry entry;
      entry.name.assign(line + 1, static_cast<size_t>(closing - (line + 1)));
      entry.child = std::make_unique<CRegistryNode>();
      CRegistryNode* child = entry.child.get();
      {
        std::lock_guard<CCriticalSection> parentGuard(open.back()->lock_);
        open.back()->appendUnsorted(std::move(entry));
      }
      open.push_back(child);
      continue;
    }
    if (droppedLevels > 0) continue;
    Entry entry;
    if (!parseValueLine(line, entry.name, entry.value)) continue;
    {
      std::lock_guard<CCriticalSection> nodeGuard(open.back()->lock_);
      open.back()->appendUnsorted(std::move(entry));
    }
    stored = true;
  }
  while (!open.empty()) close();
  return stored;
}

void CRegistryNode::dumpNode(FILE* file) const {
  std::lock_guard<CCriticalSection> guard(lock_);
  for (const Entry& entry : entries_) {
    const RegistryValue& value = entry.value;
    if (entry.child) continue;
    switch (value.type) {
      case REGISTRY_STRING:
        std::fprintf(file, "%s=s=%s\n", entry.name.c_str(), value.text.c_str());
        break;
      case REGISTRY_EXPAND_STRING:
        std::fprintf(file, "%s=es=%s\n", entry.name.c_str(), value.text.c_str());
        break;
      case REGISTRY_DWORD:
        std::fprintf(file, "%s=d=%d\n", entry.name.c_str(), static_cast<int>(value.dword));
        break;
      case REGISTRY_BINARY:
        std::fprintf(file, "%s=b=", entry.name.c_str());
        for (unsigned char byte : value.bytes) std::fprintf(file, "%02x ", byte);
        std::fputc('\n', file);
        break;
      default:
        break;
    }
  }
  for (const Entry& entry : entries_) {
    if (!entry.child) continue;
    std::fprintf(file, "[%s]\n", entry.name.c_str());
    entry.child->dumpNode(file);
  }
  std::fputc('\n', file);
}
