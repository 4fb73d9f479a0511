#include "runtime/CSystemRoot.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

// Unset, empty or "/" leave the real paths; a prefix goes in front once,
// without its trailing slashes.
TEST(SystemRootTest, PrefixGoesInFrontOfEveryFixedPath) {
  const char* cases[][2] = {
      {nullptr, "/dev/omadsj"}, {"", "/dev/omadsj"}, {"/", "/dev/omadsj"}, {"/tmp/sim//", "/tmp/sim/dev/omadsj"}};
  for (const auto& c : cases) {
    ScopedEnv env(CSystemRoot::kEnvironmentVariable, c[0]);
    EXPECT_EQ(c[1], CSystemRoot::Path("/dev/omadsj")) << (c[0] != nullptr ? c[0] : "unset");
  }
}
