// The printf formats of the report records, one per record layout. The field
// widths are deliberate truncations that the report tables rely on.
#pragma once

namespace bexo_report {

enum FormatSlot {
  kAccess,
  kViolation,  // virus and blocking
  kViolationWithInfo,
  kBot,
  kBotWithInfo,
  kDlp,
  kDlpWithInfo,
  kRkdx,
  kCleanup,
  kPerformance,
  kSystemEvent,
  kApp,
  kDashboard,
  kFormatCount
};

inline constexpr const char* kFormats[kFormatCount] = {
    // access
    "%.256s\t%.1024s\t%lld\t%s\t%.50s\t%.50s\t%.64s\t%.50s\t%.50s\t%.300s\t%.1024s\t%.1024s\t%.50s\t%.32s\t%d\t%d\t"
    "%d\t%d\t%.1024s\t%.1024s\n",
    // violation
    "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.1024s\t%.300s\t%.300s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t"
    "%.32s\t%d\n",
    // violation with access information
    "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.1024s\t%.300s\t%.300s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t"
    "%.32s\t%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
    // bot detection
    "%.256s\t%s\t%.50s\t%.1024s\t%.32s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t"
    "%d\n",
    // bot detection with access information
    "%.256s\t%s\t%.50s\t%.1024s\t%.32s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t"
    "%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
    // DLP
    "%.256s\t%s\t%.50s\t%.1024s\t%.100s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t"
    "%d\n",
    // DLP with access information
    "%.256s\t%s\t%.50s\t%.1024s\t%.100s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t"
    "%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
    // contact alert
    "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.300s\t%.1024s\t%.64s\t%.50s\t%.50s\t%d\t%d\t%d\t%.32s\t%d\n",
    // cleanup
    "%.300s\t%.64s\t%s\t%.300s\t%.300s\t%.300s\t%s\n",
    // performance
    "%.64s\t%s\t%.300s\t%.50s\n",
    // system event
    "%.64s\t%s\t%d\t%.64s\t%.1024s\n",
    // application
    "%.256s\t%s\t%.64s\t%.128s\t%d\t%d\t%u\t%u\t%lld\t%lld\t%s\t%s\n",
    // application dashboard
    "%s\t%d\t%lld\t%llu\n",
};

}  // namespace bexo_report
