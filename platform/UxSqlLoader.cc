#include "UxSqlLoader.h"

#include <errno.h>
#include <string.h>

#include <fstream>
#include <sstream>

namespace {

// Query files are small; anything larger is not one of ours.
constexpr std::streamsize kMaxFileBytes = 64 * 1024;

}  // namespace

UxSqlLoader::UxSqlLoader(const char* directory) : directory_(directory != nullptr ? directory : "") {
  if (directory_.empty()) throw UxDbException("UxSqlLoader: no SQL directory");
}

std::string UxSqlLoader::QuoteText(const char* text) {
  std::string quoted = "'";
  for (const char* p = text; *p != '\0'; ++p) {
    if (*p == '\'') quoted += '\'';
    quoted += *p;
  }
  return quoted + "'";
}

void UxSqlLoader::loadSQLWithValues(char* text, int size, const char* file_name,
                                    const std::vector<std::string>& values) {
  const std::string path = directory_ + "/" + file_name;
  std::ifstream in(path, std::ios::binary);
  if (!in) throw UxDbException("UxSqlLoader: cannot read " + path + ": " + strerror(errno));
  std::string query(kMaxFileBytes + 1, '\0');
  in.read(&query[0], kMaxFileBytes + 1);
  query.resize(static_cast<size_t>(in.gcount()));
  if (query.size() > static_cast<size_t>(kMaxFileBytes)) throw UxDbException("UxSqlLoader: " + path + " is too large");

  std::string filled;
  for (size_t i = 0; i < query.size(); ++i) {
    if (query[i] == '$' && i + 1 < query.size() && query[i + 1] >= '1' && query[i + 1] <= '9') {
      const size_t index = static_cast<size_t>(query[i + 1] - '1');
      if (index >= values.size()) {
        throw UxDbException("UxSqlLoader: " + path + " uses parameter $" + query[i + 1] + ", not given");
      }
      filled += values[index];
      ++i;
    } else {
      filled += query[i];
    }
  }
  while (!filled.empty() && (filled.back() == '\n' || filled.back() == ' ')) filled.pop_back();
  if (size <= 0 || filled.size() >= static_cast<size_t>(size)) {
    throw UxDbException("UxSqlLoader: " + path + " does not fit " + std::to_string(size) + " bytes");
  }
  memcpy(text, filled.c_str(), filled.size() + 1);
}
