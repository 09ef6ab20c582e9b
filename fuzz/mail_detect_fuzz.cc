// Detection and conversion of arbitrary bytes to every target: in bounds,
// and never a result longer than the conversion's buffer allows.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "mail_cnvt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  int code = AutoDetect(text.c_str());
  if (code < 0 || code > 4) abort();
  for (int target = 1; target <= 5; ++target) free(fromANY(&text[0], target));
  return 0;
}
