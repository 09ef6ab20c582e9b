// Helpers shared by the files of mail_cnvt; not part of the library's interface.
// Thread safety: reentrant; the reset is for single-threaded tests.
#pragma once

#include <stddef.h>

namespace bexo_mail {

// Length of the encoded-word prefix ("=?ISO-2022-JP?B?", "=?SHIFT_JIS?Q?",
// "=?EUC-JP?B?", ..., compared without case) that starts at `s`, or 0.
size_t EncodedWordPrefixLength(const char* s);

// Makes the next jp_func() read JP_FUNC again.
void ResetJpFuncForTesting();

}  // namespace bexo_mail
