// UxDbConnect: one open connection to PostgreSQL (libpq) that runs a query
// and hands its rows out one at a time. Rows stream in libpq's single-row
// mode, so a list of a million rows never sits in memory as a whole result.
//
//   connect.executeSQL("SELECT url FROM ...", 0);
//   while (connect.fetchNextRow() == 0) use(connect.getColVal("URL"));
//
// Column names are looked up as libpq does: without double quotes they are
// compared in lower case. Every failure throws UxDbException carrying the
// server's (or libpq's) message.
//
// Thread safety: one thread at a time per connection.
#pragma once

#include <stdexcept>
#include <string>

#include "bexo_export.h"
#include "db_settings.h"

struct pg_conn;
struct pg_result;

class BEXO_EXPORT UxDbException : public std::runtime_error {
 public:
  explicit UxDbException(const std::string& message) : std::runtime_error(message) {}
};

class BEXO_EXPORT UxDbConnect {
 public:
  // Connects with the settings' host (a directory for a Unix socket), port,
  // database, user and password; throws when the server does not answer.
  explicit UxDbConnect(const DbSettings& settings);
  ~UxDbConnect();
  UxDbConnect(const UxDbConnect&) = delete;
  UxDbConnect& operator=(const UxDbConnect&) = delete;

  // Starts `sql` (one statement). Rows of an earlier query that were not
  // fetched are discarded first. `kind` 0 is a query whose rows are fetched;
  // any other kind runs the statement to its end at once.
  void executeSQL(const char* sql, int kind = 0);
  // Moves to the next row: 0 when there is one, 1 after the last row.
  int fetchNextRow();
  // A column of the current row as text ("" for NULL); throws for an unknown column.
  const char* getColVal(const char* column) const;
  // The same as an integer (0 for NULL; throws when the text is not one).
  int getColValInt(const char* column) const;

 private:
  void Discard();
  int Column(const char* column) const;

  pg_conn* conn_ = nullptr;
  pg_result* row_ = nullptr;
  bool in_query_ = false;
};
