#include "runtime/CServerControlPaths.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "runtime/CProcess.h"
#include "runtime/CRegistry.h"
#include "tests/support/TestSupport.h"

// BinRoot, else FileRoot, of the product key's Setup key, else the working
// directory, less one trailing slash unless fewer than three characters would
// be left. The product key is the one a pointer value names, or the default
// key when (only when) that value is missing.
TEST(ServerControlPathsTest, BinRootThenFileRootThenTheWorkingDirectory) {
  const std::string here = get_current_directory(), own = "[P]\n",
                    fallback = "[Tarnwell]\n[Management]\n[Server Control]\n";
  auto registry = [](const std::string& productKeys, const std::string& setup, const std::string& pointsTo) {
    std::string text = "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n" + productKeys + "[Setup]\n" + setup +
                       std::string(std::count(productKeys.begin(), productKeys.end(), '[') + 2, '\n');
    if (!pointsTo.empty()) {
      text += "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n[C3681B60-0D26-11D3-8319-00A0C9B61E25]\n"
              "Server Control=s=SOFTWARE\\" + pointsTo + "\n\n\n\n\n\n";
    }
    return text + "\n\n";
  };
  // No registry file at all is every report run's case.
  struct Case { std::string registry, expected; bool fromRegistry; } cases[] = {
      {registry(own, "BinRoot=s=/opt/bin/\nFileRoot=s=/opt/data\n", "P"), "/opt/bin", true},
      {registry(own, "FileRoot=s=/ab/\n", "P"), "/ab", true},
      {registry(own, "BinRoot=b=\n", "P"), here, false},  // an empty value counts as missing
      {registry(own, "BinRoot=s=\n", "P"), "", true},     // an empty string is a value (its NUL)
      {registry(own, "BinRoot=d=65\n", "P"), "A", true},  // read as bytes up to a NUL
      {registry(fallback, "BinRoot=s=/a/\n", ""), "/a/", true},
      {registry(fallback, "BinRoot=s=/opt/fallback\n", "Nowhere"), here, false},
  };
  for (const Case& c : cases) {
    ScopedSystemRoot root;
    root.writeFile("/etc/orvmon/registry", c.registry);
    CRegistry::SetupTree(true);
    std::string out;
    EXPECT_EQ(c.fromRegistry, CServerControlPaths::GetServerControlBinPath(out)) << c.registry;
    EXPECT_EQ(c.expected, out) << c.registry;
  }
}
