#include "LoginAttributes.h"

#include <stdlib.h>
#include <string.h>

#include <string>

#include "db_settings.h"
#include "password_cipher.h"

namespace {

template <size_t N>
void CopyTruncated(char (&field)[N], const std::string& value) {
  const size_t length = value.size() < N - 1 ? value.size() : N - 1;
  memcpy(field, value.data(), length);
  field[length] = '\0';
}

}  // namespace

LoginAttributes::LoginAttributes(bool report_database) {
  DbSettings settings = ReadDbSettings(report_database ? "Database_Log" : "Database");
  valid_ = settings.read;
  os_authentication_ = settings.os_authentication;
  CopyTruncated(DSN, settings.dsn);
  CopyTruncated(database, settings.database);
  CopyTruncated(user, settings.user);
  CopyTruncated(password, settings.password);
  CopyTruncated(host, settings.host);
  CopyTruncated(port, settings.port);
  const long long limit = strtoll(settings.rows_limit.c_str(), nullptr, 10);
  rows_limit = limit > 0 && limit <= 0x7fffffff ? static_cast<int>(limit) : kDefaultRowsLimit;
  WipeSecret(&settings.password[0], settings.password.size());
}

LoginAttributes::~LoginAttributes() { WipeSecret(password, sizeof password); }
