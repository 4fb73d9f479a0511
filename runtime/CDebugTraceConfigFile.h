#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <string>

// Reader of one section of one trace configuration (INI) file.
//
// The format is deliberately loose and kept that way for compatibility with
// the files the suite's other programs write: the last bracketed name of a
// file must be [EndOfFile] (any case) or the whole file is ignored; section
// names compare without case; a key is found by plain substring search in
// the section and its value follows the next "=", which may be on a later
// line.
class CDebugTraceConfigFile {
 public:
  static constexpr size_t kMaxNumberText = 64;
  static constexpr size_t kMaxTextValue = 256;

  CDebugTraceConfigFile() = default;
  ~CDebugTraceConfigFile();
  CDebugTraceConfigFile(const CDebugTraceConfigFile&) = delete;
  CDebugTraceConfigFile& operator=(const CDebugTraceConfigFile&) = delete;

  // Reads directory/file and finds the section. Once a section was found the
  // reader remembers its path; later calls re-read that same path and file
  // and directory may be null.
  bool OpenSectionInIniFile(const char* section, const char* file, const char* directory);
  void CloseSectionInIniFile();

  // The value text of key (at most maxLength characters, up to the end of
  // its line) into out[outSize]. False when the key or its "=" is missing.
  bool ReadText(const char* key, char* out, size_t outSize, size_t maxLength) const;
  // The value of key read with strtoul base 0 (so 0x10 and 010 work).
  bool ReadUnsigned(const char* key, unsigned& value) const;

  bool IsOpen() const { return m_SectionEnd != nullptr; }
  const std::string& Path() const { return m_Path; }
  off_t Size() const { return m_Size; }
  time_t ModificationTime() const { return m_ModificationTime; }
  void SetFileState(off_t size, time_t modificationTime) {
    m_Size = size;
    m_ModificationTime = modificationTime;
  }

 private:
  bool Fail();
  bool LoadFile();
  bool CutAtEndOfFileMarker();
  bool FindSection(const char* section);

  char* m_Buffer = nullptr;
  char* m_SectionBegin = nullptr;
  char* m_SectionEnd = nullptr;
  std::string m_Path;
  off_t m_Size = 0;
  time_t m_ModificationTime = 0;
};
