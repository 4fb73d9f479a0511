#include "pages/ZentrixInformation.h"

#include <string>

#include <gtest/gtest.h>

TEST(DurationTextTest, DaysHoursMinutesWithTheReportsOwnWording) {
  const std::pair<unsigned, const char*> cases[] = {
      {90061, "1 days 1 hours 1 minutes"}, {86400, "1 days "},   {59, ""},           {3600, "1 hours "},
      {2 * 86400 + 3 * 3600 + 59, "2 days 3 hours "},              {60, "1 minutes"},
      {4294967295u, "49710 days 6 hours 28 minutes"}};
  for (const auto& c : cases) EXPECT_EQ(c.second, ZentrixInformation::secondsToDaysHoursMinutes(c.first)) << c.first;
}
