#pragma once

#include <string>

#include <rapidjson/document.h>

namespace agentsim {

// A profile as text for people and diffs: the members of the top-level object
// and of its objects and arrays one per line, everything deeper compact.
// The same document always gives the same text.
std::string FormatProfile(const rapidjson::Value& root);

// Replaces `path` with `content` through a temporary file beside it, so a
// reader (or a crash half-way) never sees a partly written file. False with
// a message naming the path.
bool WriteFileAtomically(const std::string& path, const std::string& content, std::string& error);

}  // namespace agentsim
