#include "runtime/CDebugTraceConfigFile.h"

#include <strings.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kZeroTail = 16;
constexpr char kEndOfFile[] = "EndOfFile";

bool NameEquals(const char* begin, const char* end, const char* name) {
  size_t length = static_cast<size_t>(end - begin);
  return length == strlen(name) && strncasecmp(begin, name, length) == 0;
}

}  // namespace

CDebugTraceConfigFile::~CDebugTraceConfigFile() { CloseSectionInIniFile(); }

void CDebugTraceConfigFile::CloseSectionInIniFile() {
  free(m_Buffer);
  m_Buffer = nullptr;
  m_SectionBegin = nullptr;
  m_SectionEnd = nullptr;
  m_Path.clear();
  m_Size = 0;
  m_ModificationTime = 0;
}

bool CDebugTraceConfigFile::Fail() {
  CloseSectionInIniFile();
  return false;
}

bool CDebugTraceConfigFile::OpenSectionInIniFile(const char* section, const char* file,
                                                 const char* directory) {
  if (section == nullptr) return Fail();
  if (m_Path.empty()) {
    if (file == nullptr || directory == nullptr) return Fail();
    m_Path = std::string(directory) + "/" + file;
    struct stat info;
    if (stat(m_Path.c_str(), &info) != 0) return Fail();
    m_Size = info.st_size;
    m_ModificationTime = info.st_mtime;
  }
  if (!LoadFile() || !CutAtEndOfFileMarker() || !FindSection(section)) return Fail();
  return true;
}

bool CDebugTraceConfigFile::LoadFile() {
  free(m_Buffer);
  m_SectionBegin = m_SectionEnd = nullptr;
  if (m_Size < 0) return false;
  m_Buffer = static_cast<char*>(calloc(static_cast<size_t>(m_Size) + kZeroTail, 1));
  if (m_Buffer == nullptr) return false;
  FILE* in = fopen(m_Path.c_str(), "r");
  if (in == nullptr) return false;
  size_t got = fread(m_Buffer, 1, static_cast<size_t>(m_Size), in);
  fclose(in);
  return got == static_cast<size_t>(m_Size);
}

bool CDebugTraceConfigFile::CutAtEndOfFileMarker() {
  char* close = nullptr;
  for (char* p = m_Buffer + m_Size; p > m_Buffer;) {
    if (*--p == ']') {
      close = p;
      break;
    }
  }
  if (close == nullptr) return false;
  char* open = nullptr;
  for (char* p = close; p > m_Buffer;) {
    if (*--p == '[') {
      open = p;
      break;
    }
  }
  if (open == nullptr || !NameEquals(open + 1, close, kEndOfFile)) return false;
  *open = '\0';
  return true;
}

bool CDebugTraceConfigFile::FindSection(const char* section) {
  char* search = m_Buffer;
  for (;;) {
    char* open = strchr(search, '[');
    if (open == nullptr) return false;
    char* close = strchr(open + 1, ']');
    if (close == nullptr) return false;
    if (NameEquals(open + 1, close, section)) {
      m_SectionBegin = close + 1;
      break;
    }
    search = close + 1;
  }
  char* end = strchr(m_SectionBegin, '[');
  if (end == nullptr) end = m_SectionBegin + strlen(m_SectionBegin);
  *end = '\0';
  m_SectionEnd = end;
  return true;
}

bool CDebugTraceConfigFile::ReadText(const char* key, char* out, size_t outSize,
                                     size_t maxLength) const {
  if (!IsOpen() || key == nullptr || *key == '\0' || out == nullptr || outSize == 0) return false;
  const char* found = strstr(m_SectionBegin, key);
  if (found == nullptr) return false;
  const char* equals = strchr(found + strlen(key), '=');
  if (equals == nullptr) return false;
  const char* value = equals + 1;
  while (*value != '\0' && isspace(static_cast<unsigned char>(*value))) ++value;
  size_t limit = maxLength < outSize - 1 ? maxLength : outSize - 1;
  size_t n = 0;
  while (n < limit && value[n] != '\0' && value[n] != '\n') {
    out[n] = value[n];
    ++n;
  }
  out[n] = '\0';
  return true;
}

bool CDebugTraceConfigFile::ReadUnsigned(const char* key, unsigned& value) const {
  char text[kMaxNumberText + 1];
  if (!ReadText(key, text, sizeof text, kMaxNumberText)) return false;
  value = static_cast<unsigned>(strtoul(text, nullptr, 0));
  return true;
}
