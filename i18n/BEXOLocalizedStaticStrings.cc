#include "BEXOLocalizedStaticStrings.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "BEXOLocalizedStaticStringsImpl.h"
#include "UxLog.h"

namespace {

// Bound of the text while placeholders are filled.
constexpr size_t kMaxExpansion = 1 << 20;

}  // namespace

BEXOLocalizedStaticStrings::BEXOLocalizedStaticStrings(const char* locale, const char* bundleDirectory,
                                                       const char** bundleNames,
                                                       unsigned int bundleCount)
    : impl_(std::make_unique<BEXOLocalizedStaticStringsImpl>(locale, bundleDirectory, bundleNames,
                                                             bundleCount)) {}

BEXOLocalizedStaticStrings::~BEXOLocalizedStaticStrings() = default;

const char* BEXOLocalizedStaticStrings::GetLocalizedString(const char* bundle, const char* table,
                                                           const char* key, const char* defaultText) {
  const char* fallback = defaultText != nullptr ? defaultText : "";
  if (impl_ == nullptr) return fallback;
  std::string composed = std::string(bundle != nullptr ? bundle : "") + "/" +
                         (table != nullptr ? table : "") + "/" + (key != nullptr ? key : "");
  const char* text = impl_->Find(composed);
  if (text != nullptr) return text;
  UX_LOG(3, "BEXOLocalizedStaticStrings", "GetLocalizedString", "Missed key [%s]", composed.c_str());
  return fallback;
}

void BEXOLocalizedStaticStrings::ForEachString(
    const std::function<void(const char* key, const char* text)>& visit) const {
  if (impl_ != nullptr) impl_->ForEach(visit);
}

int BEXOLocalizedStaticStrings::FormatLocalizedString(const char* pattern, char* output,
                                                      unsigned int outputSize,
                                                      unsigned int argumentCount,
                                                      const char** arguments) {
  if (pattern == nullptr || output == nullptr || outputSize == 0) return -1;
  // Arguments that bring in later placeholders can double the text per
  // index; it is held to kMaxExpansion bytes (or the output size if larger).
  const size_t keep = outputSize - 1;
  const size_t limit = std::max(keep, kMaxExpansion);
  std::string text(pattern, strnlen(pattern, limit));
  std::string next;
  for (unsigned int i = 0; i < argumentCount; ++i) {
    char placeholder[16];
    const size_t placeholder_length =
        static_cast<size_t>(snprintf(placeholder, sizeof placeholder, "{%u}", i));
    const char* argument = arguments != nullptr && arguments[i] != nullptr ? arguments[i] : "";
    const size_t argument_length = strlen(argument);
    size_t from = 0;
    size_t at = text.find(placeholder);
    if (at == std::string::npos) continue;
    next.clear();
    // Inserted text is not searched again: scan on in the text as it was.
    for (; at != std::string::npos && next.size() < limit; at = text.find(placeholder, from)) {
      next.append(text, from, at - from).append(argument, argument_length);
      from = at + placeholder_length;
    }
    if (next.size() < limit) next.append(text, from, std::string::npos);
    if (next.size() > limit) next.resize(limit);
    text.swap(next);
  }
  const size_t length = std::min(text.size(), keep);
  memcpy(output, text.data(), length);
  output[length] = '\0';
  return 0;
}
