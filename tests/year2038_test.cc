// Dates past January 2038, where a 32-bit time_t ends: rule expiries and
// report dates work on 32-bit x86 as on x86-64.
#include <gtest/gtest.h>
#include <time.h>

#include <string>

#include "Report_Log_Read_Write.h"
#include "temp_root.h"
#include "url_matching_module.h"
#include "ux_Time.h"

namespace {

class Year2038Test : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    ux_Time::SetCurrentTimeForTesting(0);
    TempRootTest::TearDown();
  }
};

TEST_F(Year2038Test, RuleExpiriesPast2038) {
  const time_t mid_2039 = ux_Time(2039, 6, 1, 12).get_time_t();
  ASSERT_GT(mid_2039, time_t{0x7fffffff});
  const struct {
    time_t now;  // 0: the system clock
    ux_Time expiry;
    find_entry_results expected;
  } cases[] = {
      {mid_2039, ux_Time(2040, 1, 1), entry_found},
      {mid_2039, ux_Time(2039, 1, 1), entry_expired},
      {0, ux_Time(2040, 1, 1), entry_found},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expiry.to_string() + " at " + std::to_string(static_cast<long long>(c.now)));
    ux_Time::SetCurrentTimeForTesting(c.now);
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
