#include "app/ZentrixApp.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = (fs::temp_directory_path() / "zentrix-app-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~ScratchDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

TEST(ZentrixAppTest, OutputFilenameIsStampedOnceInLocalTime) {
  ZentrixApp app;
  const std::string name = app.getOutputFilename();
  ASSERT_EQ(name.size(), std::string("Zentrix_20260115093012.html").size()) << name;
  EXPECT_EQ(name.rfind("Zentrix_", 0), 0u);
  EXPECT_EQ(name.substr(name.size() - 5), ".html");
  for (size_t i = 8; i < 22; ++i) EXPECT_TRUE(isdigit(static_cast<unsigned char>(name[i]))) << name;
  struct tm parsed = {};
  ASSERT_NE(strptime(name.substr(8, 14).c_str(), "%Y%m%d%H%M%S", &parsed), nullptr);
  parsed.tm_isdst = -1;
  EXPECT_LE(std::abs(difftime(time(nullptr), mktime(&parsed))), 5.0);

  sleep(1);
  EXPECT_EQ(app.getOutputFilename(), name);  // cached, not re-stamped
}

TEST(ZentrixAppTest, WritableProbeCreatesOrEmptiesTheFile) {
  ScratchDir dir;
  ZentrixApp app;
  EXPECT_TRUE(app.isFileWritable(""));

  const std::string fresh = dir.path() + "/new.html";
  ASSERT_TRUE(app.isFileWritable(fresh));
  struct stat info = {};
  ASSERT_EQ(stat(fresh.c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 0);
  EXPECT_EQ(info.st_mode & 0777, 0644 & ~[] { mode_t m = umask(0); umask(m); return m; }());

  const std::string existing = dir.path() + "/old.html";
  std::ofstream(existing) << "previous report";
  ASSERT_TRUE(app.isFileWritable(existing));
  EXPECT_EQ(fs::file_size(existing), 0u);
}

TEST(ZentrixAppTest, WritableProbeFailureLeavesErrnoFromOpen) {
  ScratchDir dir;
  ZentrixApp app;
  EXPECT_FALSE(app.isFileWritable(dir.path() + "/missing/dir/r.html"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(app.isFileWritable(dir.path()));  // a directory cannot be opened for writing
  EXPECT_EQ(errno, EISDIR);
}

TEST(ZentrixAppTest, WritableProbeCutsLongPathsTo259Characters) {
  ScratchDir dir;
  ZentrixApp app;
  std::string path = dir.path() + "/";
  path += std::string(259 - path.size(), 'a');
  ASSERT_EQ(path.size(), 259u);
  ASSERT_TRUE(app.isFileWritable(path + "bcdef"));
  EXPECT_TRUE(fs::exists(path));
  EXPECT_FALSE(fs::exists(path + "bcdef"));
}
