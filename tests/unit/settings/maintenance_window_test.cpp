#include "settings/maintenance_window.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(ClockTime, IsHoursAndMinutesAndNothingAfter) {
  int minutes = -1;
  for (const char* refused : {"24:00", "02:60", "-1:00", "1:-1", "2", "2 :00", "02:00x", "02-00"}) {
    EXPECT_FALSE(ParseClockTime(refused, &minutes)) << refused;
  }
  EXPECT_EQ(minutes, -1);
  EXPECT_TRUE(ParseClockTime(" +2: +5", &minutes));
  EXPECT_EQ(minutes, 125);
}

TEST(MaintenanceWindow, BeginsAndEndsWithAMinuteAndMayCrossMidnightOrLastTheWholeDay) {
  for (const int now : {120, 299}) EXPECT_TRUE(WindowContains("02:00", "05:00", true, now)) << now;
  for (const int now : {119, 300}) EXPECT_FALSE(WindowContains("02:00", "05:00", true, now)) << now;
  for (const int now : {1320, 179}) EXPECT_TRUE(WindowContains("22:00", "3:0", true, now)) << now;
  for (const int now : {1319, 180}) EXPECT_FALSE(WindowContains("22:00", "3:0", true, now)) << now;
  EXPECT_TRUE(WindowContains("04:00", "04:00", true, 239));
}

TEST(MaintenanceWindow, IsOpenAndLogsWhenItIsUnreadableAndEnabled) {
  testing::internal::CaptureStderr();
  for (const bool enabled : {true, false}) EXPECT_TRUE(WindowContains("02:00", "5", enabled, 720));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[Update] window '02:00'-'5' is unreadable; treating the window as open\n");
}

}  // namespace Vantrell
