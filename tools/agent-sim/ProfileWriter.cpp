#include "ProfileWriter.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace agentsim {

namespace {

std::string Compact(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

// Objects and arrays down to `expand` levels get one member per line.
void Format(const rapidjson::Value& value, const std::string& indent, int expand, std::string& out) {
  const bool object = value.IsObject() && value.MemberCount() > 0;
  const bool array = value.IsArray() && !value.Empty();
  if (expand == 0 || (!object && !array)) {
    out += Compact(value);
    return;
  }
  const std::string inner = indent + "  ";
  out += object ? "{\n" : "[\n";
  bool first = true;
  auto item = [&](const rapidjson::Value* name, const rapidjson::Value& member) {
    out += first ? inner : ",\n" + inner;
    first = false;
    if (name) out += Compact(*name) + ": ";
    Format(member, inner, expand - 1, out);
  };
  if (object)
    for (auto& member : value.GetObject()) item(&member.name, member.value);
  else
    for (auto& element : value.GetArray()) item(nullptr, element);
  out += "\n" + indent + (object ? "}" : "]");
}

}  // namespace

std::string FormatProfile(const rapidjson::Value& root) {
  std::string out;
  Format(root, "", 2, out);
  return out + "\n";
}

bool WriteFileAtomically(const std::string& path, const std::string& content, std::string& error) {
  const std::string temporary = path + ".tmp." + std::to_string(getpid());
  auto failed = [] { return errno != 0 ? errno : EIO; };
  int failure = 0;
  errno = 0;
  if (FILE* file = std::fopen(temporary.c_str(), "w")) {
    if (std::fwrite(content.data(), 1, content.size(), file) != content.size() || std::fflush(file) != 0 ||
        fsync(fileno(file)) != 0)
      failure = failed();
    if (std::fclose(file) != 0 && failure == 0) failure = failed();
  } else {
    failure = failed();
  }
  if (failure == 0 && std::rename(temporary.c_str(), path.c_str()) != 0) failure = failed();
  if (failure == 0) return true;
  error = "cannot write " + path + ": " + std::strerror(failure);
  unlink(temporary.c_str());
  return false;
}

}  // namespace agentsim
