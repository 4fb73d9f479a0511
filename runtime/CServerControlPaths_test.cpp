#include "runtime/CServerControlPaths.h"

#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "runtime/CRegistry.h"
#include "runtime/CSetupPaths.h"
#include "tests/support/TestSupport.h"

namespace {

TEST(SetupPathsTest, DropsOneTrailingSlashExceptOnRootLikePaths) {
  const char* cases[][2] = {{"/opt/x/", "/opt/x"}, {"/opt/x//", "/opt/x/"}, {"/ab/", "/ab"}, {"/opt/x", "/opt/x"},
                            {"/", "/"},            {"//", "//"},             {"/a/", "/a/"}, {"", ""}};
  for (const auto& c : cases) {
    std::string path = c[0];
    CSetupPaths::MakeValidDirPath(path);
    EXPECT_EQ(c[1], path) << c[0];
  }
}

const char kPointer[] =
    "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n[C3681B60-0D26-11D3-8319-00A0C9B61E25]\n"
    "Server Control=s=SOFTWARE\\";
// The product's key "SOFTWARE\<product>\Setup" holding setupValues, and the
// UUID pointer naming SOFTWARE\<pointsTo> (none when empty).
std::string registryWith(const std::string& product, const std::string& setupValues, const std::string& pointsTo) {
  std::string text = "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n", closing = "\n\n\n";
  size_t start = 0;
  for (size_t end; (end = product.find('\\', start)) != std::string::npos; start = end + 1, closing += "\n") {
    text += "[" + product.substr(start, end - start) + "]\n";
  }
  text += "[" + product.substr(start) + "]\n[Setup]\n" + setupValues + closing;
  if (!pointsTo.empty()) text += kPointer + pointsTo + "\n\n\n\n\n\n";
  return text + "\n\n";
}

TEST(ServerControlPathsTest, BinRootThenFileRootThenTheCurrentDirectory) {
  char buffer[4096];
  ASSERT_NE(nullptr, getcwd(buffer, sizeof buffer));
  std::string here = buffer;
  CSetupPaths::MakeValidDirPath(here);
  const std::string fallbackKey = "Tarnwell\\Management\\Server Control";
  auto product = [](const char* setupValues) { return registryWith("Product", setupValues, "Product"); };
  // An empty registry text stands for no registry file at all.
  struct Case { const char* what; std::string registry, expected; bool fromRegistry; } cases[] = {
      {"no registry", "", here, false},
      {"BinRoot first, without its trailing slash", product("BinRoot=s=/opt/bin/\nFileRoot=s=/opt/data\n"),
       "/opt/bin", true},
      {"FileRoot", product("FileRoot=s=/opt/data\n"), "/opt/data", true},
      {"an empty value counts as missing", product("BinRoot=b=\n"), here, false},
      {"an empty string is a value (its NUL)", product("BinRoot=s=\n"), "", true},
      {"a double word reads as bytes up to a NUL", product("BinRoot=d=65\n"), "A", true},
      {"no pointer: the default product key", registryWith(fallbackKey, "BinRoot=s=/opt/fallback\n", ""),
       "/opt/fallback", true},
      {"a pointer to a missing key is followed",
       registryWith(fallbackKey, "BinRoot=s=/opt/fallback\n", "Nowhere"), here, false},
  };
  for (const Case& c : cases) {
    ScopedSystemRoot root;
    if (!c.registry.empty()) root.writeFile("/etc/orvmon/registry", c.registry);
    CRegistry::SetupTree(true);
    std::string out;
    EXPECT_EQ(c.fromRegistry, CServerControlPaths::GetServerControlBinPath(out)) << c.what;
    EXPECT_EQ(c.expected, out) << c.what;
  }
}

}  // namespace
