// Report import into the database: the rolled report files are copied into
// their tables by the psql client. The client reads the lines through our
// COPY text converter on its standard input, so that no record is lost or
// shifted; the password reaches it only in its own environment.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Report_Log_Read_Write.h"
#include "UxLog.h"
#include "bexo_util.h"
#include "password_cipher.h"
#include "process_spawn.h"
#include "product_path.h"
#include "report/copy_text_converter.h"

namespace {

constexpr char kLogFile[] = "Report_Log_Read_Write.cpp";
constexpr char kPsql[] = "/usr/bexo/PostgreSQL/bin/psql";
constexpr size_t kCommandSize = 256;

struct ImportTable {
  const char* marker;
  const char* table;
  int columns;  // fields of the widest record layout of the family
};

// Tested in this order; the first hit wins. Policy-event files go to the
// violation table on purpose.
constexpr ImportTable kImportTables[] = {
    {".access.", "tb_url_usage", 20},
    {".violation.", "tb_violation", 24},
    {".polevtkrau.", "tb_violation", 24},
    {".performance.", "tb_performance_value", 4},
    {".cleanup.", "tb_cleanup", 7},
    {".systemevent.", "tb_sys_event_log", 5},
    {".app.", "tb_app_control_statistic", 12},
    {".apparmdashboard.", "tb_app_control_dashboard", 4},
    {".rkdx.", "tb_rkdx_log", 15},
};

const ImportTable* FindTable(const char* file) {
  for (const ImportTable& entry : kImportTables) {
    if (strstr(file, entry.marker) != nullptr) return &entry;
  }
  return nullptr;
}

// The client command with `tail` as its -c text, into a 256-byte buffer;
// false when it does not fit.
bool BuildCommand(char (&command)[kCommandSize], const LoginAttributes& login, const std::string& tail) {
  const std::string psql = bexo::ProductPath(kPsql);
  // snprintf, not bexo_snprintf: the length it would have needed tells whether it fits.
  const int n = snprintf(command, sizeof command, "%s -h %s -p %s -d %s -U %s -c \"%s\"", psql.c_str(),
                              login.host, login.port, login.database, login.user, tail.c_str());
  return n >= 0 && static_cast<size_t>(n) < sizeof command;
}

bexo::SpawnOptions ClientOptions(const LoginAttributes& login) {
  bexo::SpawnOptions options;
  options.log_file = kLogFile;
  options.quiet_stdout = true;
  // A client without a password would prompt: not on the caller's terminal.
  options.new_session = true;
  options.null_stdin = true;
  if (login.password[0] != '\0') options.extra_environment.push_back(std::string("PGPASSWORD=") + login.password);
  return options;
}

void WipeOptions(bexo::SpawnOptions& options) {
  for (std::string& entry : options.extra_environment) WipeSecret(&entry[0], entry.size());
}

}  // namespace

const char* Report_Log_Read_Write::ImportTableFor(const char* file) {
  const ImportTable* entry = file != nullptr ? FindTable(file) : nullptr;
  return entry != nullptr ? entry->table : nullptr;
}

int Report_Log_Read_Write::Execute(const char* command) {
  bexo::SpawnOptions options;
  options.log_file = kLogFile;
  return bexo::ExecuteCommand(command, options);
}

int Report_Log_Read_Write::ImportToDB(const char* file, LoginAttributes& login, long long* rows) {
  if (rows != nullptr) *rows = 0;
  const ImportTable* entry = file != nullptr ? FindTable(file) : nullptr;
  if (entry == nullptr) {
    UX_LOG(1, kLogFile, "ImportToDB", "Unknown report import file: %s", file != nullptr ? file : "(null)");
    return -1;
  }
  // The command as the client would read the file itself; its size bounds
  // the import even though the lines arrive on standard input.
  char command[kCommandSize];
  if (!BuildCommand(command, login, std::string("\\copy ") + entry->table + " from " + file)) {
    UX_LOG(1, kLogFile, "ImportToDB", "psql command to large");
    return -1;
  }
  char strip[kCommandSize];
  const int n = snprintf(strip, sizeof strip, "sed -i 's/\\x0d//g' %s", file);
  if (n >= 0 && static_cast<size_t>(n) < sizeof strip) Execute(strip);

  const std::string psql = bexo::ProductPath(kPsql);
  const std::string streamed = psql + " -h " + login.host + " -p " + login.port + " -d " + login.database +
                               " -U " + login.user + " -c \"\\copy " + entry->table + " from pstdin\"";
  bexo::SpawnOptions options = ClientOptions(login);
  int64_t converted = -1;
  const int status = bexo::ExecuteCommand(streamed.c_str(), options, [&](int fd) {
    converted = bexo_report::ConvertRecordFile(file, entry->columns, [fd](const std::string& chunk) {
      return bexo::WriteAllToChild(fd, chunk.data(), chunk.size());
    });
    return converted >= 0;
  });
  WipeOptions(options);
  if (status == 0 && converted >= 0) {
    if (rows != nullptr) *rows = converted;
    return 0;
  }
  if (converted < 0) UX_LOG(1, kLogFile, "ImportToDB", "ERROR: report file %s not sent to the client", file);
  return status == 2 ? -2 : -1;
}

int Report_Log_Read_Write::CheckDBConnection(LoginAttributes& login) {
  char command[kCommandSize];
  if (!BuildCommand(command, login, "SELECT * FROM tb_list;")) {
    UX_LOG(1, kLogFile, "CheckDBConnection", "Report_Log_Read_Write::CheckDBConnection(): psql command to large");
    return -1;
  }
  bexo::SpawnOptions options = ClientOptions(login);
  const int status = bexo::ExecuteCommand(command, options);
  WipeOptions(options);
  return status == 0 ? 0 : -1;
}
