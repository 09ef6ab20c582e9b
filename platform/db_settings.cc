#include "db_settings.h"

#include <strings.h>

#include "ConfigFile.h"
#include "password_cipher.h"
#include "product_path.h"

DbSettings ReadDbSettings(const char* section) {
  DbSettings settings;
  ConfigFile config(bexo::ProductPath("/etc/kvelo/morvane.ini"));
  if (!config.ok()) return settings;
  settings.read = true;
  auto value = [&](const char* sect, const char* key) {
    return config.get_value(sect, key).value_or(std::string());
  };
  settings.dsn = value(section, "DSN");
  settings.database = value(section, "DB");
  settings.host = value(section, "DB_HOSTNAME");
  settings.port = value(section, "DB_PORT");
  settings.rows_limit = value(section, "RowsLimit");
  settings.os_authentication = strcasecmp(value("Database", "sql_auth").c_str(), "no") == 0;
  if (settings.os_authentication) return settings;
  settings.user = value(section, "User");
  const std::string enciphered = value(section, "Password");
  char plain[1024];
  if (NewDecryptStr(enciphered.c_str(), plain, sizeof plain) > 0) settings.password = plain;
  WipeSecret(plain, sizeof plain);
  return settings;
}
