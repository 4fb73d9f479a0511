// Renders the whole report for each shipped simulator profile and compares
// it byte for byte with tests/golden/<profile>.html. The heading's clock is
// the only varying text; it is masked on both sides.
//
// After a deliberate change of the report, regenerate with
//   ZX_UPDATE_GOLDEN=1 ./system_tests --gtest_filter='ReportGolden*'
// and read the diff of tests/golden/ before committing it.
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "pages/Zentrix.h"
#include "tests/support/TestSupport.h"

namespace {

class ReportGoldenTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ReportGoldenTest, RendersExactlyTheCheckedInReport) {
  AgentSimulator sim({GetParam(), {}, false});
  // The heading's clock is the report's only <h3>.
  const std::string html = std::regex_replace(Zentrix().renderContent(), std::regex("<h3>[^<]*</h3>"),
                                              "<h3>####-##-## ##:##:##</h3>", std::regex_constants::format_first_only);
  const std::string path = std::string(ZX_SOURCE_DIR) + "/tests/golden/" + GetParam() + ".html";
  if (const char* update = std::getenv("ZX_UPDATE_GOLDEN"); update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << html;
    GTEST_SKIP() << "rewrote " << path;
  }
  EXPECT_EQ(ScopedSystemRoot::readFile(path), html);  // multi-line texts fail with a diff; a missing file reads empty
}

INSTANTIATE_TEST_SUITE_P(Profiles, ReportGoldenTest, ::testing::Values("typical", "empty", "degraded"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
