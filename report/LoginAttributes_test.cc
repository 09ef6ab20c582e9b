// LoginAttributes from "morvane.ini": section choice, widths, defaults,
// operating-system authentication and the enciphered password.
#include "LoginAttributes.h"

#include <string>

#include "password_cipher.h"
#include "temp_root.h"

namespace {

class LoginAttributesTest : public bexo_test::TempRootTest {};

TEST_F(LoginAttributesTest, Table) {
  char sealed[512];
  ASSERT_GT(NewEncryptStr("pw", sealed, sizeof sealed), 0);
  const std::string longest(300, 'x');
  const struct {
    std::string ini;  // empty: no file
    bool report;
    bool valid, os_auth;
    std::string user, password, host, port, dsn, db;
    int rows;
  } cases[] = {
      {"", true, false, false, "", "", "", "", "", "", 6000},
      {"[Database_Log]\nUser=u\nPassword=" + std::string(sealed) + "\nDB_HOSTNAME=h\nDB_PORT=5432\nDSN=d\nDB=r\n"
       "RowsLimit=100\n[Database]\nUser=policy\n",
       true, true, false, "u", "pw", "h", "5432", "d", "r", 100},
      {"[Database]\nUser=policy\nRowsLimit=0\n", false, true, false, "policy", "", "", "", "", "", 6000},
      {"[Database]\nRowsLimit=-4\n", false, true, false, "", "", "", "", "", "", 6000},
      {"[Database]\nRowsLimit=lots\nPassword=v1:garbage\n", false, true, false, "", "", "", "", "", "", 6000},
      {"[Database]\nsql_auth=No\n[Database_Log]\nUser=u\nPassword=" + std::string(sealed) + "\n", true, true, true,
       "", "", "", "", "", "", 6000},
      {"[Database_Log]\nUser=" + longest + "\nDB_HOSTNAME=" + longest + "\nDB_PORT=" + longest + "\nDSN=" +
           longest + "\nDB=" + longest + "\n",
       true, true, false, longest.substr(0, 128), "", longest.substr(0, 128), longest.substr(0, 32),
       longest.substr(0, 32), longest.substr(0, 32), 6000},
  };
  for (const auto& c : cases) {
    if (!c.ini.empty()) bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), c.ini);
    LoginAttributes login(c.report);
    EXPECT_EQ(c.valid, login.isValid()) << c.ini;
    EXPECT_EQ(c.os_auth, login.isWindowsAuth()) << c.ini;
    EXPECT_EQ(c.user, login.user) << c.ini;
    EXPECT_EQ(c.password, login.password) << c.ini;
    EXPECT_EQ(c.host, login.host) << c.ini;
    EXPECT_EQ(c.port, login.port) << c.ini;
    EXPECT_EQ(c.dsn, login.DSN) << c.ini;
    EXPECT_EQ(c.db, login.database) << c.ini;
    EXPECT_EQ(c.rows, login.rows_limit) << c.ini;
  }
}

}  // namespace
