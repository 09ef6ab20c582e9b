// ux_Time: a local date and time to the second, used for rule expiry and
// report dates. Its text form, written by print_out and read back by
// set_to_string_value, is "YYYY/MM/DD HH:MM:SS" (19 characters and a NUL).
//
// Thread safety: a value type; distinct objects may be used from any thread.
#pragma once

#include <stddef.h>
#include <time.h>

#include <stdexcept>
#include <string>

#include "bexo_export.h"

// Thrown for text or fields that do not form a valid date and time.
class BEXO_EXPORT UXX_illegal_argument : public std::invalid_argument {
 public:
  explicit UXX_illegal_argument(const std::string& what) : std::invalid_argument(what) {}
};

class BEXO_EXPORT ux_Time {
 public:
  static constexpr size_t kTextSize = 20;  // print_out's text and its NUL

  ux_Time();  // 1970/01/01 00:00:00
  ux_Time(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

  void get_current_time();
  // Test seam: get_current_time reads `now` instead of the system clock, in
  // every thread, until this is called again with 0.
  static void SetCurrentTimeForTesting(time_t now);
  void set_from_time_t(time_t value);
  time_t get_time_t() const;

  // Writes the text form, truncated to size - 1 characters; returns buffer.
  char* print_out(char* buffer, size_t size) const;
  std::string to_string() const;
  // Parses the text form; throws UXX_illegal_argument on anything else.
  void set_to_string_value(const char* text);

  // Negative when this time is earlier than `other`, 0 when equal, else positive.
  int compare_time(const ux_Time& other) const;
  // Calendar days from this date to the date of `other` (negative when
  // `other` is earlier); the time of day does not count.
  int get_day_gap(const ux_Time& other) const;

  // Setters validate against the other fields and throw UXX_illegal_argument.
  void set_year(int year);
  void set_month(int month);
  void set_day(int day);

  int get_year() const { return year_; }
  int get_month() const { return month_; }
  int get_day() const { return day_; }
  int get_hour() const { return hour_; }
  int get_minute() const { return minute_; }
  int get_second() const { return second_; }

 private:
  void Assign(int year, int month, int day, int hour, int minute, int second);

  int year_ = 1970;
  int month_ = 1;
  int day_ = 1;
  int hour_ = 0;
  int minute_ = 0;
  int second_ = 0;
};
