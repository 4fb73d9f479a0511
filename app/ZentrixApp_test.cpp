#include "app/ZentrixApp.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/TestSupport.h"

namespace fs = std::filesystem;

TEST(ZentrixAppTest, OutputFilenameIsStampedOnceInLocalTime) {
  // Zones far from UTC: a UTC stamp, or a second stamp, shows.
  ScopedEnv zone("TZ", "UTC-14");
  ZentrixApp app;
  const time_t now = time(nullptr);
  const std::string name = app.getOutputFilename();
  zone.set("TZ", "UTC+14");
  const std::string again = app.getOutputFilename();

  EXPECT_EQ(again, name);
  struct tm parsed = {};
  ASSERT_NE(strptime(name.c_str(), "Zentrix_%Y%m%d%H%M%S.html", &parsed), nullptr) << name;
  char reprinted[64];
  strftime(reprinted, sizeof reprinted, "Zentrix_%Y%m%d%H%M%S.html", &parsed);
  EXPECT_EQ(name, reprinted);  // zero-padded, nothing around it
  EXPECT_LE(std::abs(difftime(timegm(&parsed), now + 14 * 3600)), 2.0) << name;
}

TEST(ZentrixAppTest, WritableProbeCreatesOrEmptiesTheFileAndCutsLongPaths) {
  std::string pattern = (fs::temp_directory_path() / "zentrix-app-XXXXXX").string();
  const std::string dir = mkdtemp(pattern.data());
  struct RemoveOnExit {
    std::string path;
    ~RemoveOnExit() { fs::remove_all(path); }
  } cleanup{dir};
  ZentrixApp app;
  EXPECT_TRUE(app.isFileWritable(""));

  const std::string fresh = dir + "/new.html";
  ASSERT_TRUE(app.isFileWritable(fresh));
  EXPECT_EQ(fs::file_size(fresh), 0u);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(fs::status(fresh).permissions(), static_cast<fs::perms>(0644 & ~mask));

  const std::string existing = dir + "/old.html";
  std::ofstream(existing) << "previous report";
  ASSERT_TRUE(app.isFileWritable(existing));
  EXPECT_EQ(fs::file_size(existing), 0u);

  // Only the first 259 characters of a path count.
  const std::string cut = dir + "/" + std::string(258 - dir.size(), 'a');
  ASSERT_TRUE(app.isFileWritable(cut + "bcdef"));
  EXPECT_TRUE(fs::exists(cut));
  EXPECT_FALSE(fs::exists(cut + "bcdef"));
}
