// mail_cnvt: the character-set work around notification mail. Base64 and
// quoted-printable codecs (RFC 2045), MIME encoded words (RFC 2047) for
// ISO-2022-JP, Shift_JIS and EUC-JP, detection of those encodings, conversion
// out of ISO-2022-JP, and ConvertMail (UTF-8 to any ICU charset, in Base64).
//
// Encoding codes: 0 none (ASCII or undecidable), 1 ISO-2022-JP, 2 Shift_JIS,
// 3 EUC-JP, 4 MIME encoded words (as a target: produce them), 5 (target only)
// Japanese characters replaced by "?".
//
// Every function returns a new buffer from malloc (the caller frees it) or
// null on failure. Conversion into ISO-2022-JP is deliberately not done here:
// toJIS passes bytes through; ConvertMail goes through ICU for real charsets.
//
// Thread safety: reentrant. The only shared state is the local kanji code
// `_kanji` and the cached JP_FUNC answer, written once.
#pragma once

#include <stddef.h>

#include "bexo_export.h"

// The local kanji code used by toKNJ and fromKNJ (initially 3, EUC-JP).
BEXO_EXPORT extern int _kanji;

// 1 when Japanese processing is switched off (environment JP_FUNC equal to
// "no" ignoring case, read once), else 0.
BEXO_EXPORT int jp_func();

// The encoding code 0 to 4 of a NUL-terminated byte string.
BEXO_EXPORT int AutoDetect(const char* s);

// Base64 with CR LF after every 60 characters and at the end.
BEXO_EXPORT char* to_base64(const unsigned char* data, size_t len, size_t* outlen);
// Decoded bytes (NUL-terminated), or null on misplaced "=" padding.
// Characters outside the alphabet are skipped.
BEXO_EXPORT unsigned char* from_base64(const unsigned char* text, size_t len, size_t* outlen);
// Quoted-printable text, soft line breaks after 75 columns.
BEXO_EXPORT char* to_qprint(const unsigned char* data, size_t len, size_t* outlen);
// Decoded bytes, or null on a bad "=" escape. Writes a NUL at text[len], so
// `text` must hold len + 1 bytes.
BEXO_EXPORT unsigned char* from_qprint(unsigned char* text, size_t len, size_t* outlen);

// Every ISO-2022-JP run of `s` wrapped in "=?ISO-2022-JP?B?...?=", CR and LF
// removed; a copy when Japanese processing is off.
BEXO_EXPORT char* encode_str(char* s);
// Every recognised encoded word of `s` decoded; null when one does not decode.
BEXO_EXPORT char* decode_str(char* s);

// ISO-2022-JP text converted to target 2, 3 or 5; target 4 gives encode_str,
// target 1 (or Japanese processing off) an unchanged copy.
BEXO_EXPORT char* fromJIS(char* s, int target);
// Source 4 gives decode_str; anything else an unchanged copy (pass-through).
BEXO_EXPORT char* toJIS(char* s, int source);
// Detects the encoding of `s`, then converts it to `target`.
BEXO_EXPORT char* fromANY(char* s, int target);
// To and from the local kanji code `_kanji`, through ISO-2022-JP.
BEXO_EXPORT char* toKNJ(char* s, int source);
BEXO_EXPORT char* fromKNJ(char* s, int target);

// Converts UTF-8 text to `charset` with ICU and stores its Base64 (no line
// breaks) in *out. With `appendAsciiReset`, a charset that matches
// "ISO-2022-JP" over the first min(its length, 12) characters gets ESC ( B
// appended to the converted text. 0, or -1 with *out untouched or null.
BEXO_EXPORT int ConvertMail(const char* utf8, const char* charset, char** out, bool appendAsciiReset);
