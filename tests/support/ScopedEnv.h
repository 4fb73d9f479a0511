#pragma once

#include <map>
#include <optional>
#include <string>

// Environment variables changed for a scope: each one touched gets its old
// value, or its absence, back at the end. A change of TZ takes effect at once.
//
//   ScopedEnv zone("TZ", "UTC-14");
//   ScopedEnv env;  env.set("OV_LOG_DEBUG_LEVEL", "3");  env.unset("TraceFileLimit");
class ScopedEnv {
 public:
  ScopedEnv() = default;
  // `value` nullptr removes the variable.
  ScopedEnv(const std::string& name, const char* value) { set(name, value); }
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

  void set(const std::string& name, const char* value);
  void set(const std::string& name, const std::string& value) { set(name, value.c_str()); }
  void unset(const std::string& name) { set(name, nullptr); }

 private:
  std::map<std::string, std::optional<std::string>> saved_;  // the value before the first change
};
