// Encoded-word decoding and encoding of arbitrary text.
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "mail_cnvt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  free(decode_str(&text[0]));
  free(encode_str(&text[0]));
  return 0;
}
