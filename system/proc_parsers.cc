#include "system/proc_parsers.h"

#include <stdint.h>
#include <string.h>

namespace bexo_metrics {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the decimal number at *p after any blanks, wrapping in T's width, and
// requires a space or line feed after it. Leaves *p on that separator.
template <typename T>
bool ReadCounter(const char*& p, T& value) {
  while (*p == ' ') ++p;
  if (!IsDigit(*p)) return false;
  value = 0;
  while (IsDigit(*p)) value = static_cast<T>(value * 10u + static_cast<T>(*p++ - '0'));
  return *p == ' ' || *p == '\n';
}

// The digits at p, without a separator check; 0 when there are none.
unsigned long long LeadingNumber(const char* p) {
  unsigned long long value = 0;
  while (IsDigit(*p)) value = value * 10u + static_cast<unsigned>(*p++ - '0');
  return value;
}

constexpr int kCounters = 8;  // user nice system idle iowait irq softirq steal
constexpr int kIdle = 3;

}  // namespace

bool ParseCpuTotals(const char* text, unsigned long long& busy, unsigned long long& total) {
  busy = total = 0;
  if (strncmp(text, "cpu ", 4) != 0) return false;
  const char* p = text + 4;
  unsigned long long sum = 0;
  unsigned long long idle = 0;
  for (int i = 0; i < kCounters; ++i) {
    unsigned long long value;
    if (!ReadCounter(p, value)) return false;
    sum += value;
    if (i == kIdle) idle = value;
  }
  total = sum;
  busy = sum - idle;
  return true;
}

bool ParsePerCpu(const char* text, unsigned long count, MetricCpuUtilization* cpus) {
  bool stored = false;
  for (const char* line = text; *line != '\0';) {
    if (strncmp(line, "cpu", 3) == 0 && IsDigit(line[3])) {
      const char* p = line + 3;
      unsigned long n = 0;
      while (IsDigit(*p)) n = n * 10u + static_cast<unsigned long>(*p++ - '0');
      if (n < count) {
        uint32_t sum = 0;
        uint32_t idle = 0;
        for (int i = 0; i < kCounters; ++i) {
          uint32_t value;
          if (!ReadCounter(p, value)) return stored;
          sum += value;
          if (i == kIdle) idle = value;
        }
        cpus[n].total = sum;
        cpus[n].busy = static_cast<uint32_t>(sum - idle);
        stored = true;
      }
    }
    const char* next = strchr(line, '\n');
    if (next == nullptr) break;
    line = next + 1;
  }
  return stored;
}

unsigned long long ParseProcessCpuTime(const char* text) {
  const char* p = text;
  for (int field = 0; field < 13; ++field) {
    p = strchr(p, ' ');
    if (p == nullptr) return 0;
    ++p;
  }
  const unsigned long long utime = LeadingNumber(p);
  p = strchr(p, ' ');
  if (p == nullptr) return utime;
  return utime + LeadingNumber(p + 1);
}

unsigned long ParseProcessMemUsage(const char* text) {
  const char* resident = strchr(text, ' ');
  if (resident == nullptr) return 0;
  const char* shared = strchr(resident + 1, ' ');
  if (shared == nullptr) return 0;
  const unsigned long pages = static_cast<unsigned long>(LeadingNumber(resident + 1)) -
                              static_cast<unsigned long>(LeadingNumber(shared + 1));
  return pages * 4;
}

}  // namespace bexo_metrics

bool getMeminfoParam(const char* buffer, size_t length, const char* key, size_t keyLength,
                     unsigned long& value) {
  value = 0;
  size_t line = 0;
  while (line < length) {
    if (length - line >= keyLength && memcmp(buffer + line, key, keyLength) == 0) {
      size_t p = line + keyLength;
      while (p < length && buffer[p] == ' ') ++p;
      if (p >= length || buffer[p] < '0' || buffer[p] > '9') return false;
      while (p < length && buffer[p] >= '0' && buffer[p] <= '9') {
        value = value * 10u + static_cast<unsigned long>(buffer[p++] - '0');
      }
      return true;
    }
    const void* next = memchr(buffer + line, '\n', length - line);
    if (next == nullptr) break;
    line = static_cast<size_t>(static_cast<const char*>(next) - buffer) + 1;
  }
  return false;
}
