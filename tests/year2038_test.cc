// Dates past January 2038, where a 32-bit time_t ends: rule expiries and
// report dates work on 32-bit x86 as on x86-64.
#include <gtest/gtest.h>
#include <time.h>

#include <string>

#include "Report_Log_Read_Write.h"
#include "fake_wall_clock.h"
#include "temp_root.h"
#include "url_matching_module.h"
#include "ux_Time.h"

namespace {

class Year2038Test : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    bexo_test::UseSystemClock();
    TempRootTest::TearDown();
  }
};

TEST_F(Year2038Test, RuleExpiriesPast2038) {
  ASSERT_GT(ux_Time(2039, 6, 1, 12).get_time_t(), time_t{0x7fffffff});
  const struct {
    bool mid_2039;  // false: the system clock
    ux_Time expiry;
    find_entry_results expected;
  } cases[] = {
      {true, ux_Time(2040, 1, 1), entry_found},
      {true, ux_Time(2039, 1, 1), entry_expired},
      {false, ux_Time(2040, 1, 1), entry_found},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expiry.to_string() + (c.mid_2039 ? " in mid-2039" : " today"));
    if (c.mid_2039) {
      bexo_test::SetWallClockToNoon(2039, 6, 1);
    } else {
      bexo_test::UseSystemClock();
    }
    url_matching_module module;
    ASSERT_TRUE(module.add_entry("far.example/*", block_policy, "rule", &c.expiry));
    policies policy;
    std::string rule, identifier, expiry;
    int list_id;
    EXPECT_EQ(module.find_entry("far.example/page", policy, rule, identifier, expiry, list_id, false),
              c.expected);
  }
}

TEST_F(Year2038Test, ReportDatePast2038) {
  const time_t when = ux_Time(2040, 2, 29, 12, 34, 56).get_time_t();
  EXPECT_EQ(Report_Log_Read_Write::getDate(when).substr(0, 19), "2040-02-29 12:34:56");
}

}  // namespace
