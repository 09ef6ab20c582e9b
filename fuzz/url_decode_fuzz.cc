// Normalisation of arbitrary bytes: never writes past the result buffer, and
// never produces more characters than the input had.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "url_matching_module.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool decode_wildcards = data[0] & 1;
  const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t length = strlen(input.c_str());
  // A buffer of exactly the accepted size, so that ASan sees any overrun.
  const int result_size = static_cast<int>(length + 1);
  char* result = static_cast<char*>(malloc(result_size));
  if (_to_lower_and_url_decode(input.c_str(), result, result_size, decode_wildcards)) {
    if (memchr(result, '\0', result_size) == nullptr) abort();
  }
  if (_to_lower_and_url_decode(input.c_str(), result, result_size - 1, decode_wildcards)) abort();
  free(result);
  return 0;
}
