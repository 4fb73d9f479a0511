#include "runtime/CSystemRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class SystemRootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* old = std::getenv(CSystemRoot::kEnvironmentVariable);
    had_ = old != nullptr;
    if (had_) saved_ = old;
  }
  void TearDown() override {
    if (had_) setenv(CSystemRoot::kEnvironmentVariable, saved_.c_str(), 1);
    else unsetenv(CSystemRoot::kEnvironmentVariable);
  }
  bool had_ = false;
  std::string saved_;
};

TEST_F(SystemRootTest, UnsetOrEmptyOrSlashLeavesRealPaths) {
  unsetenv(CSystemRoot::kEnvironmentVariable);
  EXPECT_EQ("/dev/omadsj", CSystemRoot::Path("/dev/omadsj"));
  setenv(CSystemRoot::kEnvironmentVariable, "", 1);
  EXPECT_EQ("/etc/orvmon", CSystemRoot::Path("/etc/orvmon"));
  setenv(CSystemRoot::kEnvironmentVariable, "/", 1);
  EXPECT_EQ("/var/run/omad.pid", CSystemRoot::Path("/var/run/omad.pid"));
}

TEST_F(SystemRootTest, PrefixIsPutInFrontWithoutDoubleSlash) {
  setenv(CSystemRoot::kEnvironmentVariable, "/tmp/sim/", 1);
  EXPECT_EQ("/tmp/sim/dev/omadaj", CSystemRoot::Path("/dev/omadaj"));
  EXPECT_EQ("/tmp/sim", CSystemRoot::Prefix());
  EXPECT_EQ("/tmp/sim", CSystemRoot::Path(""));
}

}  // namespace
