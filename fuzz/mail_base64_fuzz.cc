// Base64 decoding of arbitrary bytes: never reads or writes out of bounds, and
// whatever decodes re-encodes to text that decodes to the same bytes.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "mail_cnvt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  size_t len = 0;
  unsigned char* decoded = from_base64(data, size, &len);
  if (decoded == nullptr) return 0;
  size_t text_len = 0;
  char* text = to_base64(decoded, len, &text_len);
  size_t again_len = 0;
  unsigned char* again = from_base64(reinterpret_cast<unsigned char*>(text), text_len, &again_len);
  if (again == nullptr || again_len != len || memcmp(again, decoded, len) != 0) abort();
  free(again);
  free(text);
  free(decoded);
  return 0;
}
