#include "runtime/CServerControlPaths.h"

#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "runtime/CDataStore.h"
#include "runtime/CRegistry.h"
#include "runtime/CSetupPaths.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

std::string setupPath(std::string path) {
  CSetupPaths::MakeValidDirPath(path);
  return path;
}

TEST(SetupPathsTest, DropsOneTrailingSlashExceptOnRootLikePaths) {
  EXPECT_EQ("/opt/x", setupPath("/opt/x/"));
  EXPECT_EQ("/opt/x/", setupPath("/opt/x//"));
  EXPECT_EQ("/ab", setupPath("/ab/"));
  EXPECT_EQ("/opt/x", setupPath("/opt/x"));
  EXPECT_EQ("/", setupPath("/"));
  EXPECT_EQ("//", setupPath("//"));
  EXPECT_EQ("/a/", setupPath("/a/"));
  EXPECT_EQ("", setupPath(""));
}

std::string currentDir() {
  char buffer[4096];
  return getcwd(buffer, sizeof buffer) != nullptr ? buffer : "";
}

// Registry keys of an installation: the UUID pointer (optional) and the
// product's Setup key.
std::string registryWith(const std::string& pointer, const std::string& productPath, const std::string& setupValues) {
  std::string text = "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[" + productPath + "]\n[Setup]\n" + setupValues + "\n\n\n";
  if (!pointer.empty()) {
    text += "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n[C3681B60-0D26-11D3-8319-00A0C9B61E25]\n";
    text += "Server Control=s=" + pointer + "\n\n\n\n\n\n";
  }
  return text + "\n\n";
}

class ServerControlPathsTest : public ::testing::Test {
 protected:
  std::string binPath(const std::string& registry, bool* fromRegistry = nullptr) {
    if (!registry.empty()) root_.writeFile("/etc/orvmon/registry", registry);
    CRegistry::SetupTree(true);
    std::string out;
    bool result = CServerControlPaths::GetServerControlBinPath(out);
    if (fromRegistry != nullptr) *fromRegistry = result;
    return out;
  }
  ScopedSystemRoot root_;
};

TEST_F(ServerControlPathsTest, WithoutRegistryTheCurrentDirectoryIsUsed) {
  bool fromRegistry = true;
  EXPECT_EQ(setupPath(currentDir()), binPath("", &fromRegistry));
  EXPECT_FALSE(fromRegistry);
}

TEST_F(ServerControlPathsTest, BinRootComesFirstAndLosesItsTrailingSlash) {
  bool fromRegistry = false;
  EXPECT_EQ("/opt/suite/bin", binPath(registryWith("SOFTWARE\\Product", "Product",
                                                   "BinRoot=s=/opt/suite/bin/\nFileRoot=s=/opt/suite/data\n"),
                                      &fromRegistry));
  EXPECT_TRUE(fromRegistry);
  EXPECT_EQ("/opt/suite/data", binPath(registryWith("SOFTWARE\\Product", "Product", "FileRoot=s=/opt/suite/data\n")));
  EXPECT_EQ(setupPath(currentDir()), binPath(registryWith("SOFTWARE\\Product", "Product", "BinRoot=b=\n")))
      << "an empty value counts as missing";
}

TEST_F(ServerControlPathsTest, DefaultProductKeyOnlyWhenThePointerIsMissing) {
  const std::string fallbackProduct =
      "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tarnwell]\n[Management]\n[Server Control]\n[Setup]\n"
      "BinRoot=s=/opt/fallback\n\n\n\n\n\n";
  EXPECT_EQ("/opt/fallback", binPath(fallbackProduct + "\n"));

  std::string danglingPointer = fallbackProduct +
                                "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
                                "[C3681B60-0D26-11D3-8319-00A0C9B61E25]\n"
                                "Server Control=s=SOFTWARE\\Nowhere\n\n\n\n\n\n\n";
  EXPECT_EQ(setupPath(currentDir()), binPath(danglingPointer));
}

TEST_F(ServerControlPathsTest, DataStoreLeavesTheOutputAloneOnFailure) {
  binPath(registryWith("", "Product", "BinRoot=s=/x\nEmpty=s=\nNumber=d=65\n"));
  CDataStore store;
  std::string out = "unchanged";
  EXPECT_FALSE(store.Read(nullptr, "BinRoot", out));
  EXPECT_FALSE(store.Read("SOFTWARE\\Product\\Setup", nullptr, out));
  EXPECT_FALSE(store.Read("SOFTWARE\\Missing", "BinRoot", out));
  EXPECT_FALSE(store.Read("SOFTWARE\\Product\\Setup", "Missing", out));
  EXPECT_EQ("unchanged", out);
  EXPECT_TRUE(store.Read("SOFTWARE\\Product\\Setup", "Empty", out)) << "a string of size 1 (its NUL) is readable";
  EXPECT_EQ("", out);
  EXPECT_TRUE(store.Read("SOFTWARE\\Product\\Setup", "Number", out));
  EXPECT_EQ("A", out) << "a double word reads as its bytes up to the first NUL";
  EXPECT_TRUE(store.Read("SOFTWARE\\Product\\Setup", "BinRoot", out));
  EXPECT_EQ("/x", out);
}

}  // namespace
