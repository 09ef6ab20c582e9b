#include "UxResBundle.h"

#include <stdint.h>
#include <unicode/msgfmt.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <utf8.h>

#include <algorithm>

#include "bexo_util.h"

namespace {

constexpr int32_t kMaxFormattableUnits = 4096;

// A text cut at a byte limit may end inside a character: drop that part.
int32_t WholeCharacters(const char* text, int32_t length) {
  return static_cast<int32_t>(utf8::find_invalid(text, text + length) - text);
}

// Converts `length` UTF-16 units into at most `capacity` bytes of UTF-8 and a
// zero (output holds capacity + 1). False on a conversion error.
bool ToUTF8(const UChar* text, int32_t length, char* output, int32_t capacity) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open("UTF8", &status);
  int32_t needed = ucnv_fromUChars(converter, output, capacity, text, length, &status);
  ucnv_close(converter);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    needed = WholeCharacters(output, capacity);
  }
  if (U_FAILURE(status)) return false;
  output[needed] = '\0';
  return true;
}

}  // namespace

UxResBundle::UxResBundle(const char* path, const char* locale) {
  bexo_snprintf(path_, sizeof path_, "%s", path != nullptr ? path : "");
  bexo_snprintf(locale_, sizeof locale_, "%s", locale != nullptr ? locale : "");
  if (path == nullptr) return;
  UErrorCode status = U_ZERO_ERROR;
  root_ = ures_open(path, locale, &status);
  opened_ = U_SUCCESS(status) && root_ != nullptr;
}

UxResBundle::~UxResBundle() {
  opened_ = false;
  ures_close(root_);
}

UResourceBundle* UxResBundle::getNodeResBundle(const char* table) {
  if (!opened_) return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  UResourceBundle* node = ures_getByKey(root_, table, nullptr, &status);
  if (U_FAILURE(status)) {
    ures_close(node);
    return nullptr;
  }
  return node;
}

bool UxResBundle::getUTF8String(UResourceBundle* node, const char* key, char* output) {
  if (!opened_) return false;
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = 0;
  const UChar* text = ures_getStringByKey(node, key, &length, &status);
  if (U_FAILURE(status) || output == nullptr || !ToUTF8(text, length, output, kUTF8OutputSize - 1)) {
    ures_close(node);
    return false;
  }
  return true;
}

bool UxResBundle::getUTF8String(const char* table, const char* key, char* output) {
  UResourceBundle* node = getNodeResBundle(table);
  if (node == nullptr) return false;
  if (!getUTF8String(node, key, output)) return false;  // node already closed
  ures_close(node);
  return true;
}

bool UxResBundle::getFormattedUTF8String(UResourceBundle* node, const char* key,
                                         icu::Formattable* arguments, unsigned int count,
                                         char* output, unsigned int outputSize) {
  if (!opened_) return false;
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = 0;
  const UChar* pattern = ures_getStringByKey(node, key, &length, &status);
  icu::UnicodeString result;
  if (U_SUCCESS(status)) {
    icu::MessageFormat format(icu::UnicodeString(pattern, length), status);
    icu::FieldPosition position;
    if (U_SUCCESS(status)) format.format(arguments, static_cast<int32_t>(count), result, position, status);
  }
  if (U_FAILURE(status) || output == nullptr || outputSize == 0 ||
      !ToUTF8(result.getBuffer(), result.length(), output,
              static_cast<int32_t>(std::min<unsigned int>(outputSize - 1, INT32_MAX)))) {
    ures_close(node);
    return false;
  }
  return true;
}

bool UxResBundle::getFormattedUTF8String(const char* table, const char* key,
                                         icu::Formattable* arguments, unsigned int count,
                                         char* output, unsigned int outputSize) {
  UResourceBundle* node = getNodeResBundle(table);
  if (node == nullptr) return false;
  if (!getFormattedUTF8String(node, key, arguments, count, output, outputSize)) return false;
  ures_close(node);
  return true;
}

int UxResBundle::getFormattable(const char* utf8Text, icu::Formattable* result) {
  if (utf8Text == nullptr || result == nullptr) return -1;
  UChar text[kMaxFormattableUnits];
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open("UTF8", &status);
  int32_t length = ucnv_toUChars(converter, text, kMaxFormattableUnits, utf8Text, -1, &status);
  ucnv_close(converter);
  if (U_FAILURE(status)) return -1;
  result->setString(icu::UnicodeString(text, length));
  return 0;
}
