#include "html/Zentrix.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "html/StatusIcons.h"
#include "pages/ZentrixHealth.h"
#include "pages/ZentrixInformation.h"
#include "tests/support/AgentSimulator.h"

namespace {

const char kHead[] =
    "<!DOCTYPE html>\n<html>\n\n<head>\n"
    "  <meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "  <style>\n    ";
const char kStyleEnd[] = "\n  </style>\n</head>\n\n<body>\n  <div class=\"title-app\">\n    <h2>";
const char kScriptStart[] = "\n  <script>\n    ";
const char kTail[] = "\n  </script>\n</body>\n\n</html>";

std::string Between(const std::string& text, const std::string& open, const std::string& close) {
  size_t begin = text.find(open);
  if (begin == std::string::npos) return "";
  begin += open.size();
  size_t end = text.find(close, begin);
  return end == std::string::npos ? "" : text.substr(begin, end - begin);
}

// True when text matches pattern, where each '#' stands for one digit.
bool MatchesClock(const std::string& text, const std::string& pattern) {
  if (text.size() != pattern.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (pattern[i] == '#' ? !isdigit(static_cast<unsigned char>(text[i])) : text[i] != pattern[i])
      return false;
  }
  return true;
}

// The pages attach to the agent while the document renders.
class ZentrixDocumentTest : public ::testing::Test {
 protected:
  AgentSimulator sim_;
};

}  // namespace

TEST_F(ZentrixDocumentTest, SkeletonWrapsTitleTimestampAndScriptWithoutFinalNewline) {
  Zentrix document;
  const std::string html = document.renderContent();
  EXPECT_EQ(document.getTitle(), "Zentrix");

  ASSERT_EQ(html.compare(0, sizeof kHead - 1, kHead), 0);
  EXPECT_EQ(html.find("<title>"), std::string::npos);
  ASSERT_GE(html.size(), sizeof kTail);
  EXPECT_EQ(html.substr(html.size() - (sizeof kTail - 1)), kTail);
  EXPECT_NE(html.back(), '\n');

  const std::string heading = Between(html, kStyleEnd, "\n  </div>");
  EXPECT_TRUE(MatchesClock(heading, "Zentrix</h2>\n    <h3>####-##-## ##:##:##</h3>")) << heading;

  // The information page, then the health page, right after the heading.
  const std::vector<HTMLComponent*> pages = document.getNodes();
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_NE(dynamic_cast<ZentrixInformation*>(pages[0]), nullptr);
  EXPECT_NE(dynamic_cast<ZentrixHealth*>(pages[1]), nullptr);

  const std::string script = Between(html, kScriptStart, kTail);
  EXPECT_EQ(script.find('\n'), std::string::npos);
  EXPECT_EQ(script.rfind("var collapsibleElements=document.getElementsByClassName(\"collapsible\"),i;", 0), 0u);
  EXPECT_NE(script.find("var newHeight=parseInt(parent.style.maxHeight.replace(\"px\",\"\"))+"
                        "content.scrollHeight;parent.style.maxHeight=newHeight+\"px\"}}));"),
            std::string::npos);
}

TEST_F(ZentrixDocumentTest, StyleSheetIsMinifiedWithRulesInOrder) {
  Zentrix document;
  const std::string html = document.renderContent();
  const std::string css = Between(html, "<style>\n    ", "\n  </style>");
  ASSERT_FALSE(css.empty());
  EXPECT_EQ(css.find('\n'), std::string::npos);
  EXPECT_EQ(css.find("} "), std::string::npos);

  std::vector<std::string> selectors;
  size_t pos = 0;
  while (pos < css.size()) {
    size_t open = css.find('{', pos);
    size_t close = css.find('}', open);
    ASSERT_NE(close, std::string::npos) << css.substr(pos);
    selectors.push_back(css.substr(pos, open - pos));
    pos = close + 1;
  }
  const std::vector<std::string> expected = {
      ".collapsible", ".collapsible:after", ".active:after", ".content-main", ".content",
      ".title-app", ".title-app>h2", ".title-app>h3", ".title-text", ".title-line",
      ".status-table", ".status-table .title", ".status-table .value", ".status-table .row>div",
      ".panel-body", ".status-table .row", ".data-table thead", "table", ".data-table",
      ".data-table *", ".data-table th", ".data-table td", "th", "tr", ".data-table td.icon",
      ".data-table td:last-child,.data-table th:last-child", ".status-normal", ".status-warning",
      ".status-error", ".status-not-present", ".icon"};
  EXPECT_EQ(selectors, expected);

  // Declarations whose escapes and quirks are easy to get wrong.
  EXPECT_NE(css.find(".collapsible:after{content:\"\\02C3\";color:#000;"), std::string::npos);
  EXPECT_NE(css.find(".active:after{content:\"\\02C5\"}"), std::string::npos);
  EXPECT_NE(css.find(".title-app{padding-bottom:15px;border-bottom:1px solid #b7b7b7;display:flex;"
                     "padding-bottom:0}"),
            std::string::npos);
  EXPECT_NE(css.find("font:normal 13px/15px \"Segoe UI\",sans-serif}th{"), std::string::npos);
  EXPECT_NE(css.find(".status-warning{background-image:url(data:image/png;base64," +
                     std::string(StatusIcons::kWarning) +
                     ");background-repeat:no-repeat;background-position:left center;margin-left:15px}"),
            std::string::npos);
  EXPECT_NE(css.find(std::string(StatusIcons::kNotPresent) + ");"), std::string::npos);
  EXPECT_EQ(css.substr(css.rfind(".icon{")),
            ".icon{width:22px;min-height:16px;background-position:left 10px center}");
}

TEST(ZentrixTimestampTest, IsLocalTime) {
  // A fixed zone far from UTC makes a UTC-formatted stamp fail.
  const char* oldTz = getenv("TZ");
  const std::string saved = oldTz ? oldTz : "";
  setenv("TZ", "UTC-14", 1);
  tzset();
  Zentrix document;
  time_t before = time(nullptr);
  const std::string stamp = document.getTimestamp();
  time_t after = time(nullptr);
  if (oldTz) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
  tzset();

  ASSERT_TRUE(MatchesClock(stamp, "####-##-## ##:##:##")) << stamp;
  struct tm parsed = {};
  ASSERT_NE(strptime(stamp.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
  // Reading the stamp as UTC gives a time 14 hours ahead of the clock.
  time_t asUtc = timegm(&parsed);
  EXPECT_GE(asUtc, before + 14 * 3600 - 1);
  EXPECT_LE(asUtc, after + 14 * 3600 + 1);
}
