#include "ux_Time.h"

#include <stdio.h>

#include <atomic>
#include <cstring>

namespace {

std::atomic<time_t> g_fixed_now{0};  // 0: the system clock

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a proleptic Gregorian date.
long DaysFromCivil(int year, int month, int day) {
  year -= month <= 2;
  const long era = (year >= 0 ? year : year - 399) / 400;
  const long yoe = year - era * 400;
  const long doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// Reads exactly `count` decimal digits.
bool ReadDigits(const char* text, int count, int* out) {
  int value = 0;
  for (int i = 0; i < count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    value = value * 10 + (text[i] - '0');
  }
  *out = value;
  return true;
}

}  // namespace

ux_Time::ux_Time() = default;

ux_Time::ux_Time(int year, int month, int day, int hour, int minute, int second) {
  Assign(year, month, day, hour, minute, second);
}

void ux_Time::Assign(int year, int month, int day, int hour, int minute, int second) {
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 ||
      day > DaysInMonth(year, month) || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
      second < 0 || second > 60) {
    throw UXX_illegal_argument("ux_Time: date or time out of range");
  }
  year_ = year;
  month_ = month;
  day_ = day;
  hour_ = hour;
  minute_ = minute;
  second_ = second;
}

void ux_Time::get_current_time() {
  time_t fixed = g_fixed_now.load(std::memory_order_relaxed);
  set_from_time_t(fixed != 0 ? fixed : time(nullptr));
}

void ux_Time::SetCurrentTimeForTesting(time_t now) { g_fixed_now.store(now, std::memory_order_relaxed); }

void ux_Time::set_from_time_t(time_t value) {
  struct tm local;
  localtime_r(&value, &local);
  Assign(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
         local.tm_sec);
}

time_t ux_Time::get_time_t() const {
  struct tm local;
  memset(&local, 0, sizeof local);
  local.tm_year = year_ - 1900;
  local.tm_mon = month_ - 1;
  local.tm_mday = day_;
  local.tm_hour = hour_;
  local.tm_min = minute_;
  local.tm_sec = second_;
  local.tm_isdst = -1;
  return mktime(&local);
}

char* ux_Time::print_out(char* buffer, size_t size) const {
  if (buffer != nullptr && size > 0) {
    snprintf(buffer, size, "%04d/%02d/%02d %02d:%02d:%02d", year_, month_, day_, hour_, minute_,
             second_);
  }
  return buffer;
}

std::string ux_Time::to_string() const {
  char text[kTextSize];
  return print_out(text, sizeof text);
}

void ux_Time::set_to_string_value(const char* text) {
  int year, month, day, hour, minute, second;
  if (text == nullptr || strlen(text) != kTextSize - 1 || !ReadDigits(text, 4, &year) ||
      text[4] != '/' || !ReadDigits(text + 5, 2, &month) || text[7] != '/' ||
      !ReadDigits(text + 8, 2, &day) || text[10] != ' ' || !ReadDigits(text + 11, 2, &hour) ||
      text[13] != ':' || !ReadDigits(text + 14, 2, &minute) || text[16] != ':' ||
      !ReadDigits(text + 17, 2, &second)) {
    throw UXX_illegal_argument(std::string("ux_Time: not a time: ") + (text ? text : "(null)"));
  }
  Assign(year, month, day, hour, minute, second);
}

int ux_Time::compare_time(const ux_Time& other) const {
  const int mine[] = {year_, month_, day_, hour_, minute_, second_};
  const int theirs[] = {other.year_, other.month_, other.day_, other.hour_, other.minute_,
                        other.second_};
  for (int i = 0; i < 6; ++i) {
    if (mine[i] != theirs[i]) return mine[i] < theirs[i] ? -1 : 1;
  }
  return 0;
}

int ux_Time::get_day_gap(const ux_Time& other) const {
  return static_cast<int>(DaysFromCivil(other.year_, other.month_, other.day_) -
                          DaysFromCivil(year_, month_, day_));
}

void ux_Time::set_year(int year) { Assign(year, month_, day_, hour_, minute_, second_); }

void ux_Time::set_month(int month) { Assign(year_, month, day_, hour_, minute_, second_); }

void ux_Time::set_day(int day) { Assign(year_, month_, day, hour_, minute_, second_); }
