// Renders the whole report for each shipped simulator profile and compares
// it byte for byte with tests/golden/<profile>.html. The heading's clock is
// the only varying text; it is masked on both sides.
//
// After a deliberate change of the report, regenerate with
//   ZX_UPDATE_GOLDEN=1 ./system_tests --gtest_filter='ReportGolden*'
// and read the diff of tests/golden/ before committing it.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "html/Zentrix.h"
#include "tests/support/AgentSimulator.h"

namespace {

const char kClockMask[] = "<h3>####-##-## ##:##:##</h3>";

std::string maskClock(std::string html) {
  size_t open = html.find("<h3>");
  size_t close = open == std::string::npos ? open : html.find("</h3>", open);
  if (close != std::string::npos) html.replace(open, close + 5 - open, kClockMask);
  return html;
}

std::string goldenPath(const std::string& profile) {
  return std::string(ZX_SOURCE_DIR) + "/tests/golden/" + profile + ".html";
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The first differing line, for a readable failure instead of two huge texts.
std::string firstDifference(const std::string& expected, const std::string& actual) {
  std::istringstream left(expected), right(actual);
  std::string a, b;
  for (int line = 1;; ++line) {
    bool moreLeft = static_cast<bool>(std::getline(left, a));
    bool moreRight = static_cast<bool>(std::getline(right, b));
    if (!moreLeft && !moreRight) return "texts differ only in the final line end";
    if (!moreLeft || !moreRight || a != b) {
      return "line " + std::to_string(line) + "\n  golden: " + (moreLeft ? a : "<end>") +
             "\n  actual: " + (moreRight ? b : "<end>");
    }
  }
}

class ReportGoldenTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ReportGoldenTest, RendersExactlyTheCheckedInReport) {
  const std::string profile = GetParam();
  AgentSimulator::Options options;
  options.profile = profile;
  options.record = false;
  AgentSimulator sim(options);
  std::string html;
  {
    Zentrix document;
    html = maskClock(document.renderContent());
  }
  ASSERT_NE(std::string::npos, html.find(kClockMask));

  const std::string path = goldenPath(profile);
  const char* update = std::getenv("ZX_UPDATE_GOLDEN");
  if (update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << html;
    GTEST_SKIP() << "rewrote " << path;
  }
  const std::string golden = readFile(path);
  ASSERT_FALSE(golden.empty()) << "no golden file " << path << " (run with ZX_UPDATE_GOLDEN=1)";
  EXPECT_TRUE(golden == html) << profile << ": " << firstDifference(golden, html);
}

INSTANTIATE_TEST_SUITE_P(Profiles, ReportGoldenTest, ::testing::Values("typical", "empty", "degraded"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
