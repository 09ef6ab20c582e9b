// Always-on assertions of the URL rule stores. A null pointer or a policy
// value out of range is a programming error of the caller; the process stops
// with the failed expression in the message, also in release builds, because
// carrying on would corrupt a rule graph shared by every request.
//
// Thread safety: may be called from any thread.
#pragma once

#include "bexo_export.h"

// Prints "FILE:LINE: FUNCTION: Assertion `EXPRESSION' failed." and aborts.
[[noreturn]] BEXO_EXPORT void url_rule_assert_fail(const char* expression, const char* file,
                                                   int line, const char* function);

#define URL_RULE_ASSERT(expression) \
  ((expression) ? (void)0 : url_rule_assert_fail(#expression, __FILE__, __LINE__, __func__))
