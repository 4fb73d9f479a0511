#pragma once

#include <string>

#include <pugixml.hpp>

// A small XML document holder: the event log loads its message file through
// it. Parsing is left entirely to pugixml.
class CMarkup {
 public:
  CMarkup() = default;

  // Replaces the document by the parsed text (null or "" empties it); true
  // when the text is well-formed or empty.
  bool SetDoc(const char* text = nullptr);
  // Replaces the document by the file's content; true when it was read and
  // parsed. A failed load leaves an empty document.
  bool Load(const char* path);

  bool IsEmpty() const { return !m_Document.first_child(); }
  // Name of the root element, "" for an empty document.
  std::string GetRootName() const { return m_Document.document_element().name(); }
  const pugi::xml_document& GetDocument() const { return m_Document; }

 private:
  pugi::xml_document m_Document;
};
