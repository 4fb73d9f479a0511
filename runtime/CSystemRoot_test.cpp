#include "runtime/CSystemRoot.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace {

TEST(SystemRootTest, UnsetOrEmptyOrSlashLeavesRealPaths) {
  ScopedEnv env;
  env.unset(CSystemRoot::kEnvironmentVariable);
  EXPECT_EQ("/dev/omadsj", CSystemRoot::Path("/dev/omadsj"));
  env.set(CSystemRoot::kEnvironmentVariable, "");
  EXPECT_EQ("/etc/orvmon", CSystemRoot::Path("/etc/orvmon"));
  env.set(CSystemRoot::kEnvironmentVariable, "/");
  EXPECT_EQ("/var/run/omad.pid", CSystemRoot::Path("/var/run/omad.pid"));
}

TEST(SystemRootTest, PrefixIsPutInFrontWithoutDoubleSlash) {
  ScopedEnv env;
  env.set(CSystemRoot::kEnvironmentVariable, "/tmp/sim/");
  EXPECT_EQ("/tmp/sim/dev/omadaj", CSystemRoot::Path("/dev/omadaj"));
  EXPECT_EQ("/tmp/sim", CSystemRoot::Prefix());
  EXPECT_EQ("/tmp/sim", CSystemRoot::Path(""));
}

}  // namespace
