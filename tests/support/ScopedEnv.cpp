#include "tests/support/ScopedEnv.h"

#include <cstdlib>
#include <ctime>

namespace {

void Put(const std::string& name, const char* value) {
  if (value != nullptr) setenv(name.c_str(), value, 1);
  else unsetenv(name.c_str());
  if (name == "TZ") tzset();
}

}  // namespace

void ScopedEnv::set(const std::string& name, const char* value) {
  const char* old = std::getenv(name.c_str());
  saved_.emplace(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);  // only the first time
  Put(name, value);
}

ScopedEnv::~ScopedEnv() {
  for (const auto& [name, old] : saved_) Put(name, old ? old->c_str() : nullptr);
}
