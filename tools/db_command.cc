// bexo db: check the report database connection, import rolled report files
// into it, and encipher a database password for "morvane.ini".
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "LoginAttributes.h"
#include "Report_Log_Read_Write.h"
#include "UxDbAgent.h"
#include "command.h"
#include "password_cipher.h"
#include "product_path.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo db check                 test the report (Database_Log) and policy (Database) databases\n"
    "       bexo db import FILE...        load rolled report files into their tables\n"
    "       bexo db encrypt-password      encipher the password read from standard input\n"
    "Settings come from /etc/kvelo/morvane.ini; the client is /usr/bexo/PostgreSQL/bin/psql.";

int Usage() { return CommandError(kExitUsage, kUsage); }

// Settings and client problems that psql would only report obscurely.
bool ReadyForClient(const LoginAttributes& login) {
  if (!login.isValid()) {
    CommandError(kExitFailure, "cannot read " + bexo::ProductPath("/etc/kvelo/morvane.ini"));
    return false;
  }
  if (login.database[0] == '\0' || login.host[0] == '\0' || login.port[0] == '\0') {
    CommandError(kExitFailure, "section Database_Log of morvane.ini needs DB, DB_HOSTNAME and DB_PORT");
    return false;
  }
  const std::string psql = bexo::ProductPath("/usr/bexo/PostgreSQL/bin/psql");
  if (access(psql.c_str(), X_OK) != 0) {
    CommandError(kExitFailure, "no database client at " + psql);
    return false;
  }
  return true;
}

int Check() {
  LoginAttributes login(true);
  if (!ReadyForClient(login)) return kExitFailure;
  int result = kExitOk;
  if (Report_Log_Read_Write::CheckDBConnection(login) == 0) {
    printf("report database %s on %s port %s: answers\n", login.database, login.host, login.port);
  } else {
    result = CommandError(kExitFailure, std::string("report database ") + login.database + " on " + login.host +
                                            " port " + login.port + " does not answer (tb_list not readable)");
  }
  try {
    UxDbAgent agent("Database");
    agent.getConnection().executeSQL("SELECT 1", 1);
    printf("policy database: answers\n");
  } catch (const UxDbException& e) {
    result = CommandError(kExitFailure, std::string("policy database: ") + e.what());
  }
  return result;
}

int Import(int argc, char** argv) {
  if (argc < 3) return Usage();
  LoginAttributes login(true);
  if (!ReadyForClient(login)) return kExitFailure;
  int result = kExitOk;
  for (int i = 2; i < argc; ++i) {
    const char* file = argv[i];
    const char* table = Report_Log_Read_Write::ImportTableFor(file);
    if (table == nullptr) {
      result = CommandError(kExitFailure, std::string(file) + ": no table for this file name");
      continue;
    }
    long long rows = 0;
    const int status = Report_Log_Read_Write::ImportToDB(file, login, &rows);
    if (status == 0) {
      printf("%s: %s, %lld rows\n", file, table, rows);
    } else {
      result = CommandError(kExitFailure, std::string(file) + ": import into " + table + " failed" +
                                              (status == -2 ? ": the database connection failed" : ""));
    }
  }
  return result;
}

int EncryptPassword() {
  char password[1100];
  if (fgets(password, sizeof password, stdin) == nullptr) return CommandError(kExitUsage, "no password on standard input");
  password[strcspn(password, "\r\n")] = '\0';
  char sealed[2048];
  const int n = NewEncryptStr(password, sealed, sizeof sealed);
  WipeSecret(password, sizeof password);
  if (n < 0) {
    return CommandError(kExitFailure, "cannot encipher (key file " + bexo::ProductPath(kPasswordKeyFile) +
                                          "; see the debug log)");
  }
  printf("%s\n", sealed);
  return kExitOk;
}

int RunDb(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string verb = argv[1];
  if (verb == "check" && argc == 2) return Check();
  if (verb == "import") return Import(argc, argv);
  if (verb == "encrypt-password" && argc == 2) return EncryptPassword();
  return Usage();
}

}  // namespace

BEXO_COMMAND("db", "report and policy databases (check, import, encrypt-password)", RunDb);
