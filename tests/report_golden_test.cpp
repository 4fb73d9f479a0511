// Renders the whole report for each shipped simulator profile and compares
// it byte for byte with tests/golden/<profile>.html. The heading's clock is
// the only varying text; it is masked on both sides.
//
// After a deliberate change of the report, regenerate with
//   ZX_UPDATE_GOLDEN=1 ./system_tests --gtest_filter='ReportGolden*'
// and read the diff of tests/golden/ before committing it.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "pages/Zentrix.h"
#include "tests/support/TestSupport.h"

namespace {

const char kClockMask[] = "<h3>####-##-## ##:##:##</h3>";

std::string maskClock(std::string html) {
  size_t open = html.find("<h3>");
  size_t close = open == std::string::npos ? open : html.find("</h3>", open);
  if (close != std::string::npos) html.replace(open, close + 5 - open, kClockMask);
  return html;
}

// The first differing line, for a readable failure instead of two huge texts.
std::string firstDifference(const std::string& golden, const std::string& actual) {
  size_t at = std::mismatch(golden.begin(), golden.end(), actual.begin(), actual.end()).first - golden.begin();
  size_t start = at == 0 ? 0 : golden.rfind('\n', at - 1) + 1;  // npos + 1 is 0
  auto lineOf = [start](const std::string& text) { return text.substr(start, text.find('\n', start) - start); };
  return "line " + std::to_string(std::count(golden.begin(), golden.begin() + start, '\n') + 1) +
         "\n  golden: " + lineOf(golden) + "\n  actual: " + lineOf(actual);
}

class ReportGoldenTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ReportGoldenTest, RendersExactlyTheCheckedInReport) {
  AgentSimulator sim({GetParam(), {}, false});
  const std::string html = maskClock(Zentrix().renderContent());
  ASSERT_NE(std::string::npos, html.find(kClockMask));

  const std::string path = std::string(ZX_SOURCE_DIR) + "/tests/golden/" + GetParam() + ".html";
  const char* update = std::getenv("ZX_UPDATE_GOLDEN");
  if (update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << html;
    GTEST_SKIP() << "rewrote " << path;
  }
  const std::string golden = ScopedSystemRoot::readFile(path);
  ASSERT_FALSE(golden.empty()) << "no golden file " << path << " (run with ZX_UPDATE_GOLDEN=1)";
  EXPECT_TRUE(golden == html) << GetParam() << ": " << firstDifference(golden, html);
}

INSTANTIATE_TEST_SUITE_P(Profiles, ReportGoldenTest, ::testing::Values("typical", "empty", "degraded"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
