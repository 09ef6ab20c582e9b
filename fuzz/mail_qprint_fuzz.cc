// Quoted-printable decoding of arbitrary bytes (the input gets a NUL at its
// end, as from_qprint writes one), and the encoder's round trip.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "mail_cnvt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> text(data, data + size);
  text.push_back('\0');
  size_t len = 0;
  unsigned char* decoded = from_qprint(text.data(), size, &len);
  if (decoded != nullptr && len > size) abort();
  free(decoded);
  char* encoded = to_qprint(data, size, &len);
  std::vector<unsigned char> copy(encoded, encoded + len + 1);
  size_t back_len = 0;
  unsigned char* back = from_qprint(copy.data(), len, &back_len);
  if (back == nullptr || back_len != size || memcmp(back, data, size) != 0) abort();
  free(back);
  free(encoded);
  return 0;
}
