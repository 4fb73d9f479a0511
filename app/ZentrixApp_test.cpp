#include "app/ZentrixApp.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "pages/Zentrix.h"
#include "tests/support/TestSupport.h"

namespace fs = std::filesystem;

TEST(ZentrixAppTest, FileNameAndHeadingShowLocalTimeAndTheNameIsStampedOnce) {
  // Zones far from UTC: a UTC stamp, or a second stamp, shows.
  ScopedEnv zone("TZ", "UTC-14");
  ZentrixApp app;
  const time_t now = time(nullptr);
  const std::string name = app.getOutputFilename();
  const std::string heading = Zentrix().getTimestamp();
  zone.set("TZ", "UTC+14");
  EXPECT_EQ(app.getOutputFilename(), name);

  for (const auto& [text, format] : {std::make_pair(name, "Zentrix_%Y%m%d%H%M%S.html"),
                                     std::make_pair(heading, "%Y-%m-%d %H:%M:%S")}) {
    struct tm parsed = {};
    ASSERT_NE(strptime(text.c_str(), format, &parsed), nullptr) << text;
    char reprinted[64];
    strftime(reprinted, sizeof reprinted, format, &parsed);
    EXPECT_EQ(text, reprinted);  // zero-padded, nothing around it
    EXPECT_LE(std::abs(difftime(timegm(&parsed), now + 14 * 3600)), 2.0) << text;
  }
}

TEST(ZentrixAppTest, WritableProbeCreatesOrEmptiesTheFileAndCutsLongPaths) {
  ScopedSystemRoot root;
  const std::string dir = root.makeDirs("/out");
  ZentrixApp app;
  EXPECT_TRUE(app.isFileWritable(""));

  // Run with standard input closed, the probe's descriptor is 0.
  const std::string fresh = dir + "/new.html";
  const int input = dup(0);
  close(0);
  const bool freshWritable = app.isFileWritable(fresh);
  dup2(input, 0);
  close(input);
  ASSERT_TRUE(freshWritable);
  EXPECT_EQ(fs::file_size(fresh), 0u);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(fs::status(fresh).permissions(), static_cast<fs::perms>(0644 & ~mask));

  const std::string existing = root.writeFile("/out/old.html", "previous report");
  ASSERT_TRUE(app.isFileWritable(existing));
  EXPECT_EQ(fs::file_size(existing), 0u);

  // Only the first 259 characters of a path count.
  const std::string cut = dir + "/" + std::string(258 - dir.size(), 'a');
  ASSERT_TRUE(app.isFileWritable(cut + "bcdef"));
  EXPECT_TRUE(fs::exists(cut));
  EXPECT_FALSE(fs::exists(cut + "bcdef"));
}
