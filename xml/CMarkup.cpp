#include "xml/CMarkup.h"

bool CMarkup::SetDoc(const char* text) {
  m_Document.reset();
  if (text == nullptr || *text == '\0') return true;
  if (m_Document.load_string(text)) return true;
  m_Document.reset();
  return false;
}

bool CMarkup::Load(const char* path) {
  m_Document.reset();
  if (path == nullptr) return false;
  if (m_Document.load_file(path)) return true;
  m_Document.reset();
  return false;
}
