#pragma once

#include <string>

// Every fixed absolute path of the program (agent sockets, daemon binaries,
// pid files, /etc/orvmon, the trace configuration directory, the default
// trace directory) is resolved here. When the environment variable
// ZENTRIX_ROOT is set and non-empty it is put in front of the path, so tests
// and the agent simulator can relocate the whole system into a scratch
// directory. Paths the user configured (environment, INI, registry values,
// -output) never pass through here.
class CSystemRoot {
 public:
  static constexpr const char* kEnvironmentVariable = "ZENTRIX_ROOT";

  // "/dev/omadsj" -> "$ZENTRIX_ROOT/dev/omadsj" (or unchanged when unset).
  static std::string Path(const char* absolutePath);
  static std::string Path(const std::string& absolutePath) { return Path(absolutePath.c_str()); }

  // The prefix itself; empty when unset.
  static std::string Prefix();
};
