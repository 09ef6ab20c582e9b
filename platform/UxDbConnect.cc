#include "UxDbConnect.h"

#include <errno.h>
#include <libpq-fe.h>
#include <stdint.h>
#include <stdlib.h>

#include <vector>

namespace {

// libpq's messages end in a line feed; the exception text does not.
std::string Message(const char* text) {
  std::string message = text != nullptr ? text : "";
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
  return message.empty() ? "unknown database error" : message;
}

}  // namespace

UxDbConnect::UxDbConnect(const DbSettings& settings) {
  std::vector<const char*> keys;
  std::vector<const char*> values;
  auto add = [&](const char* key, const std::string& value) {
    if (value.empty()) return;
    keys.push_back(key);
    values.push_back(value.c_str());
  };
  add("host", settings.host);
  add("port", settings.port);
  add("dbname", settings.database);
  add("user", settings.user);
  add("password", settings.password);
  keys.push_back("connect_timeout");
  values.push_back("10");
  keys.push_back(nullptr);
  values.push_back(nullptr);
  conn_ = PQconnectdbParams(keys.data(), values.data(), 0);
  if (conn_ == nullptr) throw UxDbException("out of memory");
  if (PQstatus(conn_) != CONNECTION_OK) {
    const std::string message = Message(PQerrorMessage(conn_));
    PQfinish(conn_);
    conn_ = nullptr;
    throw UxDbException(message);
  }
}

UxDbConnect::~UxDbConnect() {
  PQclear(row_);
  PQfinish(conn_);
}

void UxDbConnect::Discard() {
  PQclear(row_);
  row_ = nullptr;
  if (!in_query_) return;
  while (PGresult* rest = PQgetResult(conn_)) PQclear(rest);
  in_query_ = false;
}

void UxDbConnect::executeSQL(const char* sql, int kind) {
  Discard();
  if (PQsendQuery(conn_, sql) != 1) throw UxDbException(Message(PQerrorMessage(conn_)));
  in_query_ = true;
  if (kind == 0) {
    PQsetSingleRowMode(conn_);
    return;
  }
  while (fetchNextRow() == 0) {
  }
}

int UxDbConnect::fetchNextRow() {
  PQclear(row_);
  row_ = nullptr;
  while (in_query_) {
    PGresult* result = PQgetResult(conn_);
    if (result == nullptr) {
      in_query_ = false;
      break;
    }
    switch (PQresultStatus(result)) {
      case PGRES_SINGLE_TUPLE:
        row_ = result;
        return 0;
      case PGRES_TUPLES_OK:
      case PGRES_COMMAND_OK:
        PQclear(result);
        continue;
      default: {
        const std::string message = Message(PQresultErrorMessage(result));
        PQclear(result);
        Discard();
        throw UxDbException(message);
      }
    }
  }
  return 1;
}

int UxDbConnect::Column(const char* column) const {
  if (row_ == nullptr) throw UxDbException("no current row");
  const int index = PQfnumber(row_, column);
  if (index < 0) throw UxDbException(std::string("no column ") + column);
  return index;
}

const char* UxDbConnect::getColVal(const char* column) const {
  return PQgetvalue(row_, 0, Column(column));
}

int UxDbConnect::getColValInt(const char* column) const {
  const char* text = getColVal(column);
  if (text[0] == '\0') return 0;
  char* end = nullptr;
  errno = 0;
  const long long value = strtoll(text, &end, 10);
  if (errno != 0 || *end != '\0' || value < INT32_MIN || value > INT32_MAX) {
    throw UxDbException(std::string("column ") + column + " is not an integer: " + text);
  }
  return static_cast<int>(value);
}
