// BEXOLocalizedStaticStrings: every string of a few ICU resource bundles,
// loaded once for one locale into an in-memory map, looked up by bundle,
// table and key; plus the filling of numbered placeholders {0}, {1}, ...
//
// The bundles are directories of compiled ICU bundles (see UxResBundle.h for
// where they are installed); each is read with ICU's locale fallback when it
// is opened, but the map holds only the strings of the file ICU opened: a
// table that a locale's file leaves out is not taken from its parent.
//
// Thread safety: after construction the object is read-only; lookups from
// several threads are safe. FormatLocalizedString is reentrant.
#pragma once

#include <functional>
#include <memory>

#include "bexo_export.h"

class BEXOLocalizedStaticStringsImpl;

class BEXO_EXPORT BEXOLocalizedStaticStrings {
 public:
  // Loads the bundles `bundleDirectory`/`bundleNames[i]` for `locale`. With
  // any argument missing the map stays empty; failures are logged (UxLog).
  BEXOLocalizedStaticStrings(const char* locale, const char* bundleDirectory,
                             const char** bundleNames, unsigned int bundleCount);
  ~BEXOLocalizedStaticStrings();
  BEXOLocalizedStaticStrings(const BEXOLocalizedStaticStrings&) = delete;
  BEXOLocalizedStaticStrings& operator=(const BEXOLocalizedStaticStrings&) = delete;

  // The UTF-8 text stored under "bundle/table/key", owned by this object; else
  // `defaultText` ("" when that is null).
  const char* GetLocalizedString(const char* bundle, const char* table, const char* key,
                                 const char* defaultText);

  // Every stored "bundle/table/key" and its text, in no particular order.
  void ForEachString(const std::function<void(const char* key, const char* text)>& visit) const;

  // Copies `pattern` into `output` with every "{i}" replaced by arguments[i]
  // (null counts as ""), for i below argumentCount, cut to outputSize - 1
  // characters and terminated. Text brought in by an argument is not searched
  // again for the same index, but later indexes do expand it. 0, or -1 when
  // pattern or output is null or outputSize is 0.
  static int FormatLocalizedString(const char* pattern, char* output, unsigned int outputSize,
                                   unsigned int argumentCount, const char** arguments);

 private:
  std::unique_ptr<BEXOLocalizedStaticStringsImpl> impl_;
};
