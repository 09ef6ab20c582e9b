// ConvertMail: UTF-8 text to a mail charset through ICU, then Base64.
#include <stdlib.h>
#include <string.h>
#include <unicode/ucnv.h>

#include <algorithm>

#include "base64_block.h"
#include "mail_cnvt.h"

int ConvertMail(const char* utf8, const char* charset, char** out, bool appendAsciiReset) {
  constexpr char kJis[] = "ISO-2022-JP";
  constexpr char kAsciiReset[] = "\x1b(B";
  size_t len = strlen(utf8);
  if (len > (static_cast<size_t>(INT32_MAX) - 6) / 3) return -1;
  int32_t capacity = static_cast<int32_t>(3 * len + 6);
  char* converted = static_cast<char*>(malloc(static_cast<size_t>(capacity)));
  if (converted == nullptr) return -1;
  UErrorCode error = U_ZERO_ERROR;
  int32_t n = ucnv_convert(charset, "utf8", converted, capacity, utf8, static_cast<int32_t>(len), &error);
  // The match is deliberately loose: any prefix of "ISO-2022-JP" (even an
  // empty name) counts, a longer name such as ISO-2022-JP-2 does not.
  if (U_SUCCESS(error) && appendAsciiReset && strncmp(charset, kJis, std::min<size_t>(strlen(charset), 12)) == 0) {
    if (n + 3 > capacity) {
      error = U_BUFFER_OVERFLOW_ERROR;
    } else {
      memcpy(converted + n, kAsciiReset, 3);
      n += 3;
    }
  }
  if (U_FAILURE(error)) {
    free(converted);
    return -1;
  }
  size_t expected = bexo_mail::Base64Chars(static_cast<size_t>(n));
  char* encoded = static_cast<char*>(malloc(expected + 1));
  if (encoded == nullptr) {
    free(converted);
    return -1;
  }
  size_t written = bexo_mail::Base64Encode(reinterpret_cast<unsigned char*>(converted), static_cast<size_t>(n),
                                           encoded, 0);
  free(converted);
  if (written != expected) {
    free(encoded);
    *out = nullptr;
    return -1;
  }
  // No CR LF to remove: the encoding is written without line breaks.
  encoded[written] = '\0';
  *out = encoded;
  return 0;
}
