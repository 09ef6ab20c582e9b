// UxResBundle: one opened ICU resource bundle, read on every call: a
// localized string by table and key as UTF-8, or a localized message pattern
// formatted with arguments.
//
// Where the bundles are. A bundle is a directory of compiled ICU bundles, one
// "<locale>.res" per locale ("root.res", "en.res", "ja.res", ...); the path
// handed to the constructor is that directory, e.g. for the daemons' texts
//   bexo::ProductPath(std::string(bexo::kResourceBundleDirectory) + "/daemon")
// which is "/etc/kvelo/resource/daemon" (under BEXO_ROOT when it is set).
// ICU picks the locale's file and falls back along its chain (ja_JP, ja, the
// default locale, root); a table missing in a locale's file is taken from
// its parent, but a key missing inside a table is not.
// - Sources: examples/resource/<bundle>/<locale>.txt, compiled with genrb at
//   build time into <build>/resource/<bundle>/<locale>.res (target
//   bexo_resources) and installed with the library under
//   <sysconfdir>/kvelo/resource/<bundle>/ (/etc/kvelo/resource for the /usr
//   prefix).
// - Tests: the build-tree directory is the compile definition
//   BEXO_RESOURCE_DIR of bexo_test_support; bexo_test::InstallResourceBundles
//   (tests/support/resource_bundles.h) copies it to the test's product root,
//   where the product path above finds it.
//
// Ownership rule of the node forms: a node from getNodeResBundle belongs to
// the caller (ures_close), except that an opened bundle's lookup that answers
// false has already closed the node it was given. Do not close it again.
//
// Thread safety: one object may be used from several threads (ICU bundles
// are read-only); a node must not be shared between threads while in use.
#pragma once

#include <unicode/fmtable.h>
#include <unicode/ures.h>

#include "bexo_export.h"

namespace bexo {
// Product path of the compiled resource bundles (resolve with ProductPath).
constexpr char kResourceBundleDirectory[] = "/etc/kvelo/resource";
}  // namespace bexo

class BEXO_EXPORT UxResBundle {
 public:
  // Output of getUTF8String: at most 2047 bytes of text and a zero.
  static constexpr unsigned int kUTF8OutputSize = 2048;

  // Opens `path` for `locale` (null: ICU's default locale). A null path, or a
  // bundle ICU cannot open, gives an object whose every lookup fails.
  UxResBundle(const char* path, const char* locale);
  ~UxResBundle();
  UxResBundle(const UxResBundle&) = delete;
  UxResBundle& operator=(const UxResBundle&) = delete;

  bool opened() const { return opened_; }

  // The top-level table `table` (the caller closes it), or null.
  UResourceBundle* getNodeResBundle(const char* table);

  // The string under `key` in `node` as UTF-8 into `output`, which must hold
  // kUTF8OutputSize bytes. A longer text is cut at 2047 bytes, moved back to
  // the start of a character that would not fit whole, so the result stays
  // valid UTF-8. False (and `node` closed) when the key is missing.
  bool getUTF8String(UResourceBundle* node, const char* key, char* output);
  // The same by table name; the table is opened and closed here.
  bool getUTF8String(const char* table, const char* key, char* output);

  // The message pattern under `key` formatted with `count` arguments by an
  // ICU MessageFormat of the default locale, as UTF-8 into at most
  // outputSize - 1 bytes (cut as above) and a zero. False (and `node` closed)
  // on any ICU error or an outputSize of 0.
  bool getFormattedUTF8String(UResourceBundle* node, const char* key, icu::Formattable* arguments,
                              unsigned int count, char* output, unsigned int outputSize);
  bool getFormattedUTF8String(const char* table, const char* key, icu::Formattable* arguments,
                              unsigned int count, char* output, unsigned int outputSize);

  // Stores the UTF-8 text (at most 4096 UTF-16 code units) in `result` as a
  // string argument. 0, or -1 on a null argument or a conversion error.
  static int getFormattable(const char* utf8Text, icu::Formattable* result);

 private:
  UResourceBundle* root_ = nullptr;
  char path_[516];
  char locale_[516];
  bool opened_ = false;
};
