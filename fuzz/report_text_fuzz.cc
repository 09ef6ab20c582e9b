// Differential fuzzing of the record writers' fast text paths: the in-place
// scrubbed view against BEXOScrubbedString, bounded escaping against the
// unbounded one, and the record line writers against snprintf.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "BEXOScrubbedString.h"
#include "report/record_format.h"
#include "report/report_text.h"

namespace {

void Check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "mismatch: %s\n", what);
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.c_str();  // the writers take C strings

  bexo_report::ScrubbedField fast(text.c_str());
  BEXOScrubbedString reference(text.c_str());
  Check(fast.view() == reference.str(), "scrubbed view");
  Check(reference.str().find_first_of("\t\n") == std::string::npos, "tab or line feed left");

  std::string escaped;
  Descriptify_DecimalCode(text.c_str(), escaped, size % 2 == 0, true);
  bexo_report::BoundedText<64> bounded;
  bexo_report::DescriptifyTo(text, size % 2 == 0, true, bounded);
  Check(bounded.view() == std::string_view(escaped).substr(0, 64), "bounded escaping");

  size_t cut = bexo_report::CutInvalidUTF8Length(text);
  Check(cut <= text.size(), "cut length");
  if (text.size() >= 1023) Check(cut <= 1023 && (cut == 0 || text[cut - 1] != '\\'), "cut tail");

  // The application layout has every kind of conversion.
  const char* format = bexo_report::kFormats[bexo_report::kApp];
  const std::string_view view = fast.view();
  const int number = static_cast<int>(size * 2654435761u);
  const unsigned count = static_cast<unsigned>(size);
  const long long big = -static_cast<long long>(size) * 1000003;
  char expected[2048];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int expected_length =
      snprintf(expected, sizeof expected, format, reference.c_str(), reference.c_str(), reference.c_str(),
               reference.c_str(), number, -number, count, ~count, big, -big, reference.c_str(), reference.c_str());
#pragma GCC diagnostic pop
  char actual[2048];
  size_t capacity = size % sizeof actual;
  size_t actual_length = bexo_report::FormatBounded<bexo_report::kApp>(
      actual, capacity, view, view, view, view, number, -number, count, ~count, big, -big, view, view);
  Check(actual_length == static_cast<size_t>(expected_length), "formatted length");
  size_t shown = std::min(actual_length, std::min(capacity, sizeof expected - 1));
  Check(memcmp(actual, expected, shown) == 0, "formatted bytes");
  return 0;
}
