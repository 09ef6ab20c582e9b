// The map behind BEXOLocalizedStaticStrings: composed keys
// "bundle/table/key" to UTF-8 texts, filled once by the constructor.
//
// Thread safety: read-only after construction.
#pragma once

#include <stdint.h>

#include <list>
#include <string>
#include <unordered_map>

#include <unicode/ucnv.h>

class BEXOLocalizedStaticStringsImpl {
 public:
  BEXOLocalizedStaticStringsImpl(const char* locale, const char* bundleDirectory,
                                 const char** bundleNames, unsigned int bundleCount);

  // The stored text of the composed key, or null.
  const char* Find(const std::string& composedKey) const;

  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const auto& entry : map_) visit(entry.first, entry.second.c_str());
  }

 private:
  // h = h * 37 + c over the key's bytes, in unsigned 32-bit arithmetic.
  struct KeyHash {
    size_t operator()(const char* key) const;
  };
  struct KeyEqual {
    bool operator()(const char* a, const char* b) const;
  };

  void LoadBundle(const std::string& bundle, const std::string& path, const char* locale,
                  UConverter* converter);
  void Store(std::string composedKey, std::string text);

  std::unordered_map<const char*, std::string, KeyHash, KeyEqual> map_;
  std::list<std::string> keys_;  // owns the map's keys
};
