// UxSqlLoader: reads query files from one directory and fills in their
// parameters. A query file holds one statement; "$1" to "$9" stand for the
// parameters in call order: numbers are written as decimal text, texts as
// quoted SQL literals (quotes doubled), so a parameter never changes the
// statement's shape.
//
//   UxSqlLoader loader(sql_path);
//   loader.loadSQL(text, 1024, "pm_GetURLList.sql", list_id);
//
// Every failure (unreadable file, a text that does not fit `size`, a
// placeholder without a parameter) throws UxDbException.
//
// Thread safety: stateless apart from the directory; any thread.
#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include "UxDbConnect.h"
#include "bexo_export.h"

class BEXO_EXPORT UxSqlLoader {
 public:
  explicit UxSqlLoader(const char* directory);

  template <typename... Params>
  void loadSQL(char* text, int size, const char* file_name, const Params&... params) {
    const std::vector<std::string> values = {Literal(params)...};
    loadSQLWithValues(text, size, file_name, values);
  }

  // The same with the parameters already written as SQL text.
  void loadSQLWithValues(char* text, int size, const char* file_name,
                         const std::vector<std::string>& values);

  // The SQL text of one parameter.
  static std::string QuoteText(const char* text);

 private:
  template <typename T>
  static std::string Literal(const T& value) {
    if constexpr (std::is_integral_v<T>) {
      return std::to_string(value);
    } else if constexpr (std::is_convertible_v<T, std::string>) {
      return QuoteText(std::string(value).c_str());
    } else {
      static_assert(std::is_integral_v<T>, "query parameters are integers or text");
    }
  }

  std::string directory_;
};
