// The database connection settings of one section of "/etc/kvelo/morvane.ini"
// ("Database" for the policy database, "Database_Log" for the report
// database): keys "DSN", "DB", "User", "Password" (enciphered, opened with
// NewDecryptStr), "DB_HOSTNAME", "DB_PORT", "RowsLimit", and "sql_auth" of
// section "Database" ("no": operating-system authentication, so no user and
// no password).
//
// Thread safety: ReadDbSettings may be called from any thread.
#pragma once

#include <string>

#include "bexo_export.h"

struct BEXO_EXPORT DbSettings {
  std::string dsn;
  std::string database;
  std::string user;
  std::string password;
  std::string host;
  std::string port;
  std::string rows_limit;  // as written; empty when absent
  bool os_authentication = false;
  bool read = false;  // the file could be read
};

BEXO_EXPORT DbSettings ReadDbSettings(const char* section);
