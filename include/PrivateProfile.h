// INI profile files with the familiar profile-function names and argument
// orders. Every call opens, scans and closes the file: nothing is cached.
//
// Reading: section and key names compare without case; the first of duplicate
// sections or keys wins; only ";" at the start of a line begins a comment
// ("# x=1" is a key named "# x"). With a null section the buffer receives all
// section names, with a null key all key names of the section, each followed
// by a NUL (see the key-list note below); a list that does not fit ends in two
// NULs and the result is size - 2.
//
// Key lists keep a historical layout: each entry is copied from the whole rest
// of its line and the next entry starts at the key's length plus one, so the
// separator after a key is the character that followed it in the file.
//
// Writing replaces the file through a backup name (path + "-"): a write to a
// file that does not exist creates nothing and returns 0, and a failure after
// the old file was moved aside leaves the configuration under the backup name.
//
// Thread safety: none. Concurrent readers and writers of one file are not
// coordinated, and during a write the file briefly does not exist under its
// own name; callers sharing a file must lock around these calls themselves.
#pragma once

#include "bexo_export.h"

// Copies the value of `key` in `section` (or a name list, see above) into
// `buffer`; the default when the file, section or key is missing. Returns the
// number of characters placed in `buffer` (a list's NULs included).
BEXO_EXPORT int GetPrivateProfileString(const char* section, const char* key,
                                        const char* default_value, char* buffer,
                                        unsigned size, const char* path);

// The decimal value of `key` (leading digits, as strtol reads them; text
// without digits gives 0), or `default_value` when it is missing. A value of
// exactly 30 characters also reads as missing: a historical limit kept as is.
BEXO_EXPORT int GetPrivateProfileInt(const char* section, const char* key, int default_value,
                                     const char* path);

// Sets `key` to `value` in `section` (appending the section when missing),
// deletes the key when `value` is null, or deletes the whole section when
// `key` is null. Returns 1 on success, 0 on failure.
BEXO_EXPORT int WritePrivateProfileString(const char* section, const char* key,
                                          const char* value, const char* path);
