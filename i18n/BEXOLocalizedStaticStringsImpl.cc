#include "BEXOLocalizedStaticStringsImpl.h"

#include <string.h>
#include <unicode/ures.h>

#include "UxLog.h"

namespace {

constexpr char kLogSource[] = "BEXOLocalizedStaticStrings";
constexpr size_t kInitialBuckets = 11;
constexpr int32_t kMaxTextBytes = 8191;

}  // namespace

size_t BEXOLocalizedStaticStringsImpl::KeyHash::operator()(const char* key) const {
  uint32_t h = 0;
  for (const unsigned char* c = reinterpret_cast<const unsigned char*>(key); *c != '\0'; ++c) {
    h = h * 37u + *c;
  }
  return h;
}

bool BEXOLocalizedStaticStringsImpl::KeyEqual::operator()(const char* a, const char* b) const {
  return strcmp(a, b) == 0;
}

BEXOLocalizedStaticStringsImpl::BEXOLocalizedStaticStringsImpl(const char* locale,
                                                               const char* bundleDirectory,
                                                               const char** bundleNames,
                                                               unsigned int bundleCount)
    : map_(kInitialBuckets) {
  map_.max_load_factor(1.0f);
  if (locale == nullptr || bundleDirectory == nullptr || bundleNames == nullptr || bundleCount == 0) {
    return;
  }
  UX_LOG(3, kLogSource, "BEXOLocalizedStaticStringsImpl",
         "Constructing localized string map for locale [%s]", locale);
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open("UTF8", &status);
  if (U_FAILURE(status)) {
    UX_LOG(1, kLogSource, "BEXOLocalizedStaticStringsImpl",
           "WARNING: Failed to allocated UTF-8 converter for static localized strings");
    return;
  }
  std::string directory = bundleDirectory;
  if (directory.empty() || directory.back() != '/') directory += '/';
  for (unsigned int i = 0; i < bundleCount; ++i) {
    if (bundleNames[i] == nullptr) continue;
    LoadBundle(bundleNames[i], directory + bundleNames[i], locale, converter);
  }
  ucnv_close(converter);
}

void BEXOLocalizedStaticStringsImpl::LoadBundle(const std::string& bundle, const std::string& path,
                                                const char* locale, UConverter* converter) {
  UX_LOG(3, kLogSource, "LoadBundle", "Reading localized strings from bundle [%s]", path.c_str());
  UErrorCode status = U_ZERO_ERROR;
  UResourceBundle* root = ures_open(path.c_str(), locale, &status);
  if (U_FAILURE(status)) {
    UX_LOG(1, kLogSource, "LoadBundle", "WARNING: Failed to open resource bundle [%s] with [%d]",
           path.c_str(), static_cast<int>(status));
    ures_close(root);
    return;
  }
  char text[kMaxTextBytes + 1];
  while (ures_hasNext(root)) {
    status = U_ZERO_ERROR;
    UResourceBundle* table = ures_getNextResource(root, nullptr, &status);
    const char* table_name = U_SUCCESS(status) ? ures_getKey(table) : nullptr;
    while (table_name != nullptr && ures_hasNext(table)) {
      status = U_ZERO_ERROR;
      int32_t length = 0;
      const char* key = nullptr;
      const UChar* string = ures_getNextString(table, &length, &key, &status);
      std::string composed = bundle + "/" + table_name + "/" + (key != nullptr ? key : "");
      int32_t bytes = ucnv_fromUChars(converter, text, kMaxTextBytes, string, length, &status);
      if (U_FAILURE(status)) {
        UX_LOG(1, kLogSource, "LoadBundle", "WARNING: Failed to convert resource to UTF-8 [%s]",
               composed.c_str());
        continue;
      }
      Store(std::move(composed), std::string(text, static_cast<size_t>(bytes)));
    }
    ures_close(table);
  }
  ures_close(root);
}

void BEXOLocalizedStaticStringsImpl::Store(std::string composedKey, std::string text) {
  auto found = map_.find(composedKey.c_str());
  if (found != map_.end()) {
    found->second = std::move(text);
    return;
  }
  keys_.push_back(std::move(composedKey));
  map_.emplace(keys_.back().c_str(), std::move(text));
}

const char* BEXOLocalizedStaticStringsImpl::Find(const std::string& composedKey) const {
  auto found = map_.find(composedKey.c_str());
  return found == map_.end() ? nullptr : found->second.c_str();
}
