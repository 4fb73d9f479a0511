#pragma once

#include <cstdlib>
#include <ctime>
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
  ~ScopedEnv() {
    for (const auto& [name, old] : saved_) Put(name, old ? old->c_str() : nullptr);
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

  void set(const std::string& name, const char* value) {
    const char* old = std::getenv(name.c_str());
    saved_.emplace(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);  // only the first time
    Put(name, value);
  }
  void set(const std::string& name, const std::string& value) { set(name, value.c_str()); }
  void unset(const std::string& name) { set(name, nullptr); }

 private:
  static void Put(const std::string& name, const char* value) {
    if (value != nullptr) setenv(name.c_str(), value, 1);
    else unsetenv(name.c_str());
    if (name == "TZ") tzset();
  }

  std::map<std::string, std::optional<std::string>> saved_;  // the value before the first change
};
