#include "pages/Zentrix.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "html/StatusIcons.h"
#include "pages/ZentrixHealth.h"
#include "pages/ZentrixInformation.h"
#include "tests/support/TestSupport.h"

namespace {

const char kHead[] =
    "<!DOCTYPE html>\n<html>\n\n<head>\n"
    "  <meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "  <style>\n    ";
const char kHeading[] = "\n  </style>\n</head>\n\n<body>\n  <div class=\"title-app\">\n    <h2>Zentrix</h2>\n    <h3>";
const char kTail[] = "\n  </script>\n</body>\n\n</html>";

std::string Between(const std::string& text, const std::string& open, const std::string& close) {
  size_t begin = text.find(open);
  size_t end = begin == std::string::npos ? begin : text.find(close, begin + open.size());
  return end == std::string::npos ? "" : text.substr(begin + open.size(), end - begin - open.size());
}

}  // namespace

TEST(ZentrixDocumentTest, SkeletonStyleOrderLocalClockPagesAndNoFinalNewline) {
  AgentSimulator sim;  // the pages query the agent while rendering
  // A zone far from UTC, so a UTC clock shows.
  ScopedEnv zone("TZ", "UTC-14");
  Zentrix document;
  const time_t before = time(nullptr);
  const std::string html = document.renderContent();
  const time_t after = time(nullptr);

  EXPECT_EQ(html.rfind(kHead, 0), 0u);
  ASSERT_GE(html.size(), sizeof kTail);
  EXPECT_EQ(html.substr(html.size() - (sizeof kTail - 1)), kTail);

  // "YYYY-mm-dd HH:MM:SS" in local time: read as UTC it is 14 hours ahead.
  const std::string clock = Between(html, kHeading, "</h3>");
  struct tm parsed = {};
  ASSERT_NE(strptime(clock.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr) << clock;
  char reprinted[32];
  strftime(reprinted, sizeof reprinted, "%Y-%m-%d %H:%M:%S", &parsed);
  EXPECT_EQ(clock, reprinted);  // zero-padded, nothing around it
  EXPECT_GE(timegm(&parsed), before + 14 * 3600 - 1);
  EXPECT_LE(timegm(&parsed), after + 14 * 3600 + 1);

  const std::vector<HTMLComponent*> pages = document.getNodes();
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_NE(dynamic_cast<ZentrixInformation*>(pages[0]), nullptr);
  EXPECT_NE(dynamic_cast<ZentrixHealth*>(pages[1]), nullptr);

  const std::string script = Between(html, "\n  <script>\n    ", kTail);
  EXPECT_EQ(script.find('\n'), std::string::npos);
  EXPECT_EQ(script.rfind("var collapsibleElements=document.getElementsByClassName(\"collapsible\"),i;", 0), 0u);

  // A minified style sheet, its rules in order.
  const std::string css = Between(html, "<style>\n    ", "\n  </style>");
  EXPECT_EQ(css.find('\n'), std::string::npos);
  std::vector<std::string> selectors;
  size_t pos = 0, open, close;
  while ((open = css.find('{', pos)) != std::string::npos && (close = css.find('}', open)) != std::string::npos) {
    selectors.push_back(css.substr(pos, open - pos));
    pos = close + 1;
  }
  EXPECT_EQ(pos, css.size());
  const std::vector<std::string> expected = {
      ".collapsible", ".collapsible:after", ".active:after", ".content-main", ".content", ".title-app",
      ".title-app>h2", ".title-app>h3", ".title-text", ".title-line", ".status-table", ".status-table .title",
      ".status-table .value", ".status-table .row>div", ".panel-body", ".status-table .row", ".data-table thead",
      "table", ".data-table", ".data-table *", ".data-table th", ".data-table td", "th", "tr", ".data-table td.icon",
      ".data-table td:last-child,.data-table th:last-child", ".status-normal", ".status-warning", ".status-error",
      ".status-not-present", ".icon"};
  EXPECT_EQ(selectors, expected);

  // Escapes that are easy to get wrong, and an embedded icon.
  const std::string warningIcon = "url(data:image/png;base64," + std::string(StatusIcons::kWarning) + ");";
  EXPECT_NE(css.find(".collapsible:after{content:\"\\02C3\";color:#000;"), std::string::npos);
  EXPECT_NE(css.find(".active:after{content:\"\\02C5\"}"), std::string::npos);
  EXPECT_NE(css.find(".status-warning{background-image:" + warningIcon), std::string::npos);
}
