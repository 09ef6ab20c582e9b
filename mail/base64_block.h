// Base64 encoding shared by the mail codecs and ConvertMail: the standard
// alphabet with "=" padding, optionally broken into lines.
// Thread safety: reentrant.
#pragma once

#include <stddef.h>

namespace bexo_mail {

// Characters of the encoding of `len` bytes, line breaks not counted.
inline size_t Base64Chars(size_t len) { return (len + 2) / 3 * 4; }

// Writes the encoding of `data` to `out` (no NUL) and returns the characters
// written. With `line_chars` non-zero, CR LF follows every `line_chars`
// characters and the end of the text. `out` must hold
// Base64Chars(len) + 2 * (Base64Chars(len) / line_chars) + 2 bytes.
size_t Base64Encode(const unsigned char* data, size_t len, char* out, size_t line_chars);

}  // namespace bexo_mail
