// LoginAttributes: the report database connection parameters, read from
// "/etc/kvelo/morvane.ini" by the constructor: section "Database_Log" when
// `report_database` is true, else "Database". Every text is truncated to its
// width. The password is stored enciphered and opened with NewDecryptStr;
// with operating-system authentication ("sql_auth" = "no" in section
// "Database", without case) user and password stay empty.
//
// Thread safety: a plain value; build one per thread or share it read-only.
#pragma once

#include "bexo_export.h"

class BEXO_EXPORT LoginAttributes {
 public:
  static constexpr int kDefaultRowsLimit = 6000;

  explicit LoginAttributes(bool report_database);
  ~LoginAttributes();  // wipes the password
  LoginAttributes(const LoginAttributes&) = default;
  LoginAttributes& operator=(const LoginAttributes&) = default;

  bool isValid() const { return valid_; }
  bool isWindowsAuth() const { return os_authentication_; }

  char DSN[32 + 1] = {};
  char database[32 + 1] = {};
  char user[128 + 1] = {};
  char password[128 + 1] = {};
  char host[128 + 1] = {};
  char port[32 + 1] = {};
  int rows_limit = kDefaultRowsLimit;  // "RowsLimit"; 6000 when absent or not positive

 private:
  bool valid_ = false;
  bool os_authentication_ = false;
};
