#include "ux_Time.h"

#include <gtest/gtest.h>

namespace {

TEST(UxTimeTest, TextFormRoundTrips) {
  const char* kValid[] = {"2024/01/31 23:59:59", "2000/02/29 00:00:00", "1999/12/31 12:30:05",
                          "9999/12/31 23:59:59"};
  for (const char* text : kValid) {
    ux_Time t;
    t.set_to_string_value(text);
    char out[ux_Time::kTextSize];
    EXPECT_STREQ(t.print_out(out, sizeof out), text);
  }
}

TEST(UxTimeTest, MalformedTextThrows) {
  const char* kInvalid[] = {"",  "2024/01/31",          "2024-01-31 00:00:00", "2024/13/01 00:00:00",
                            "2023/02/29 00:00:00", "2024/01/32 00:00:00", "2024/01/31 24:00:00",
                            "2024/01/31 00:60:00", "2024/1/31 00:00:000", "abcd/ef/gh ij:kl:mn",
                            "2024/01/31 00:00:00 ", "0000/01/01 00:00:00"};
  for (const char* text : kInvalid) {
    ux_Time t;
    EXPECT_THROW(t.set_to_string_value(text), UXX_illegal_argument) << '"' << text << '"';
  }
  ux_Time t;
  EXPECT_THROW(t.set_to_string_value(nullptr), UXX_illegal_argument);
}

TEST(UxTimeTest, PrintOutTruncatesToTheBuffer) {
  ux_Time t(2024, 5, 6, 7, 8, 9);
  char small[11];
  EXPECT_STREQ(t.print_out(small, sizeof small), "2024/05/06");
}

TEST(UxTimeTest, CompareAndDayGap) {
  ux_Time early(2024, 2, 28, 23, 59, 59);
  ux_Time late(2024, 3, 1, 0, 0, 0);
  EXPECT_LT(early.compare_time(late), 0);
  EXPECT_GT(late.compare_time(early), 0);
  EXPECT_EQ(late.compare_time(ux_Time(2024, 3, 1)), 0);
  EXPECT_EQ(early.get_day_gap(late), 2);  // leap day in between
  EXPECT_EQ(late.get_day_gap(early), -2);
  EXPECT_EQ(ux_Time(2023, 12, 31, 23).get_day_gap(ux_Time(2024, 1, 1, 0)), 1);
  EXPECT_EQ(ux_Time(2023, 1, 1).get_day_gap(ux_Time(2024, 1, 1)), 365);
}

TEST(UxTimeTest, SettersValidateTheDate) {
  ux_Time t(2024, 2, 29);
  EXPECT_THROW(t.set_year(2023), UXX_illegal_argument);
  EXPECT_EQ(t.get_year(), 2024);
  t.set_day(28);
  t.set_year(2023);
  t.set_month(12);
  t.set_day(31);
  EXPECT_EQ(t.to_string(), "2023/12/31 00:00:00");
  EXPECT_THROW(t.set_month(0), UXX_illegal_argument);
}

TEST(UxTimeTest, CurrentTimeMatchesTheClock) {
  time_t before = time(nullptr);
  ux_Time now;
  now.get_current_time();
  time_t after = time(nullptr);
  EXPECT_GE(now.get_time_t(), before);
  EXPECT_LE(now.get_time_t(), after);
}

// Past the end of a 32-bit time_t (2038-01-19 03:14:07 UTC) and of an
// unsigned one (2106-02-07 06:28:15 UTC).
TEST(UxTimeTest, TimeTRoundTripsPast2038) {
  for (const char* text : {"2038/01/19 03:14:07", "2038/01/20 00:00:00", "2040/02/29 23:59:59",
                           "2106/02/08 00:00:00"}) {
    ux_Time time;
    time.set_to_string_value(text);
    ux_Time back;
    back.set_from_time_t(time.get_time_t());
    EXPECT_EQ(back.to_string(), text);
  }
}

}  // namespace
