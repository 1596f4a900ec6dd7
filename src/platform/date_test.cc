#include "platform/date.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "platform/testing/scoped_time_zone.h"

namespace klipora {
namespace {

// Calendar tests run in a zone with daylight saving, so DST edges are exercised.
class DateTest : public ::testing::Test {
 protected:
  testing::ScopedTimeZone zone_{"Europe/Berlin"};
};

TEST_F(DateTest, ISO8601RoundTripsAndAcceptsOffsetsAndFractions) {
  Date d = Date::fromSecondsSince1970(1'700'000'000);
  EXPECT_EQ(formatISO8601(d), "2023-11-14T22:13:20Z");
  EXPECT_EQ(parseISO8601("2023-11-14T22:13:20Z"), d);
  EXPECT_EQ(parseISO8601("2023-11-14T23:13:20+01:00"), d);
  EXPECT_EQ(parseISO8601("2023-11-14T17:13:20-0500"), d);
  auto fractional = parseISO8601("2023-11-14T22:13:20.250Z");
  ASSERT_TRUE(fractional);
  EXPECT_DOUBLE_EQ(fractional->timeIntervalSince1970(), 1'700'000'000.25);
  EXPECT_EQ(formatISO8601(*fractional), "2023-11-14T22:13:20.250Z");
  for (const char* bad : {"", "2023-11-14", "2023-11-14T22:13:20", "2023-02-30T00:00:00Z",
                          "2023-11-14T22:13:20Zjunk", "2023-11-14T22:13:20.Z"}) {
    EXPECT_FALSE(parseISO8601(bad)) << bad;
  }
}

TEST_F(DateTest, ExifDatesUseTheFixedLayoutInLocalTime) {
  auto leap = parseExifDate("2024:02:29 23:59:59");
  ASSERT_TRUE(leap);
  // Berlin is UTC+1 in February.
  EXPECT_EQ(formatISO8601(*leap), "2024-02-29T22:59:59Z");
  EXPECT_FALSE(parseExifDate("2023:02:29 12:00:00"));
  EXPECT_FALSE(parseExifDate("2024-02-29 23:59:59"));
  EXPECT_FALSE(parseExifDate("2024:02:29T23:59:59"));
}

TEST_F(DateTest, CalendarArithmeticFollowsTheLocalCalendar) {
  // 2024-03-31 12:00 local is after the spring-forward; one calendar day back
  // is 23 hours earlier, not 24.
  Date noon = *parseISO8601("2024-03-31T10:00:00Z");
  EXPECT_EQ(noon.timeIntervalSince(addingLocalDays(noon, -1)), 23 * 3600);
  EXPECT_EQ(formatISO8601(startOfLocalDay(noon)), "2024-03-30T23:00:00Z");
  EXPECT_EQ(formatISO8601(startOfLocalMonth(noon)), "2024-02-29T23:00:00Z");
  // Months clamp to the target month's length.
  Date jan31 = *parseISO8601("2024-01-31T11:00:00Z");
  EXPECT_EQ(formatISO8601(addingLocalMonths(jan31, 1)), "2024-02-29T11:00:00Z");
  EXPECT_EQ(formatISO8601(addingLocalMonths(jan31, -2)), "2023-11-30T11:00:00Z");
  // Weeks start on Monday: Sunday 2024-03-31 belongs to the week of the 25th.
  EXPECT_EQ(formatISO8601(startOfLocalWeek(noon)), "2024-03-24T23:00:00Z");
}

}  // namespace
}  // namespace klipora
