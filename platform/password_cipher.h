// The enciphered database passwords of "morvane.ini". A password is sealed
// with AES-256-GCM (OpenSSL EVP) under a 32-byte key kept in
// "/etc/kvelo/db_password.key"; the stored text is "v1:" followed by the
// base64 of nonce (12 bytes), cipher text and tag (16 bytes). The key file
// must belong to the effective user (root on the gateway) and be readable by
// no one else; any other key file is refused. A tampered or foreign text
// fails to open instead of giving a wrong password.
//
// Thread safety: all functions may be called from any thread.
#pragma once

#include <stddef.h>

#include "bexo_export.h"

// Product path of the key file.
BEXO_EXPORT extern const char kPasswordKeyFile[];

// Seals `plain` into `out` (terminated); creates the key file (mode 0400)
// when it is missing. Returns the length written, or -1 (logged) when the key
// cannot be made or read or `out` is too small.
BEXO_EXPORT int NewEncryptStr(const char* plain, char* out, int out_size);

// Opens a sealed text into `out` (terminated). An empty text gives an empty
// password. Returns the length written, or -1 (logged, with `out` emptied)
// when the key is missing or unsafe, or the text is not one of ours.
BEXO_EXPORT int NewDecryptStr(const char* enciphered, char* out, int out_size);

// Overwrites a secret in memory in a way the compiler keeps.
BEXO_EXPORT void WipeSecret(void* data, size_t size);
