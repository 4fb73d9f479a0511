#include "pages/ZentrixInformation.h"

#include <string>

#include <gtest/gtest.h>

TEST(DurationTextTest, DaysHoursMinutesWithTheReportsOwnWording) {
  // Days alone and all three parts are the golden reports' business.
  const std::pair<unsigned, const char*> cases[] = {
      {59, ""}, {60, "1 minutes"}, {3600, "1 hours "}, {2 * 86400 + 3 * 3600 + 59, "2 days 3 hours "},
      {4294967295u, "49710 days 6 hours 28 minutes"}};
  for (const auto& c : cases) EXPECT_EQ(c.second, ZentrixInformation::secondsToDaysHoursMinutes(c.first)) << c.first;
}
