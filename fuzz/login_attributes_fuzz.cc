// Arbitrary "morvane.ini" contents through LoginAttributes: every field
// stays terminated within its width, the rows limit is positive, and odd
// Password values (including truncated and altered sealed texts) never
// open into anything but the empty password.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "LoginAttributes.h"
#include "UxLog.h"
#include "password_cipher.h"
#include "product_path.h"

namespace {

template <size_t N>
void CheckField(const char (&field)[N]) {
  if (memchr(field, '\0', N) == nullptr) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = [] {
    UxLog::setSink([](const UxLogRecord&) {});
    char sealed[256];
    NewEncryptStr("x", sealed, sizeof sealed);  // makes the key, so Password= values are opened
    return true;
  }();
  (void)ready;
  if (size < 1) return 0;
  const std::string path = bexo::ProductPath("/etc/kvelo/morvane.ini");
  bexo::MakeParentDirectories(path);
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  fwrite(data + 1, 1, size - 1, file);
  fclose(file);
  LoginAttributes login((data[0] & 1) != 0);
  CheckField(login.DSN);
  CheckField(login.database);
  CheckField(login.user);
  CheckField(login.password);
  CheckField(login.host);
  CheckField(login.port);
  if (login.rows_limit <= 0) abort();
  if (login.isWindowsAuth() && (login.user[0] != '\0' || login.password[0] != '\0')) abort();
  return 0;
}
