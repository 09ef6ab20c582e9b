// URL rule lists from the policy database: the query of a list type is loaded
// from the SQL directory, run on the agent's connection, and every returned
// value is added as an allow rule that carries its list identifier.
#include <string.h>

#include <string>

#include "UxDbAgent.h"
#include "UxLog.h"
#include "UxSqlLoader.h"
#include "src/API_legacy/include/url_rule_serialization_io"
#include "load_publisher.h"
#include "url_matching_module.h"

namespace {

constexpr char kLogFile[] = "url_rule_serialization_io.cpp";

enum ListType { kUrlList = 1, kFileList = 2, kCustomCategoryList = 100 };

}  // namespace

int url_rule_serialization_io::init(UxDbAgent& /*agent*/, const char* sql_path, int list_id,
                                    int list_type) {
  if (sql_path == nullptr || sql_path[0] == '\0') {
    UX_LOG(1, kLogFile, "init", "UxListQuery::init(), invalid argument(s)");
    return 1;
  }
  UX_LOG(3, kLogFile, "init", "UxListQuery::init(), SQL path: %s", sql_path);
  try {
    UxSqlLoader loader(sql_path);
    switch (list_type) {
      case kUrlList:
        loader.loadSQL(url_list_query_, kQuerySize, "pm_GetURLList.sql", list_id);
        break;
      case kFileList:
        loader.loadSQL(file_list_query_, kQuerySize, "pm_GetFileList.sql", list_id);
        break;
      case kCustomCategoryList:
        loader.loadSQL(cc_list_query_, kQuerySize, "pm_GetCCListContents.sql");
        break;
      default:
        UX_LOG(1, kLogFile, "init", "Invalid list type %d", list_type);
        return 1;
    }
  } catch (const std::exception& e) {
    UX_LOG(1, kLogFile, "init", "%s", e.what());
    return 1;
  }
  return 0;
}

bool url_rule_serialization_io::deserialize_db(int list_id, int list_type, UxDbAgent& agent) {
  switch (list_type) {
    case kUrlList:
      UX_LOG(1, kLogFile, "deserialize_db",
             "url_rule_serialization_io::deserialize_db, deserializing URL list");
      return _deserialize_list(agent, url_list_query_, list_id, "URL", false);
    case kFileList:
      UX_LOG(1, kLogFile, "deserialize_db",
             "url_rule_serialization_io::deserialize_db, deserializing file list");
      return _deserialize_list(agent, file_list_query_, list_id, "FileName", false);
    case kCustomCategoryList:
      UX_LOG(1, kLogFile, "deserialize_db",
             "url_rule_serialization_io::deserialize_db, deserializing CC list");
      return _deserialize_list(agent, cc_list_query_, list_id, "CustomCategoryURL", true);
    default:
      return false;
  }
}

bool url_rule_serialization_io::_deserialize_list(UxDbAgent& agent, const char* sql, int list_id,
                                                  const char* column, bool per_row_list_id) {
  try {
    UX_LOG(1, kLogFile, "_deserialize_list",
           "url_rule_serialization_io::_deserialize_list, executing SQL %s", sql);
    UxDbConnect& connect = agent.getConnection();
    // The rows go to a load target, published at once when the list ends or
    // the query fails, so lookups never wait for the rows.
    LoadPublisher load(*this, /*clear_first=*/false);
    connect.executeSQL(sql, 0);
    // Consecutive duplicates are added once; starting empty also skips an
    // empty first value.
    std::string previous;
    while (connect.fetchNextRow() != 1) {
      if (per_row_list_id) list_id = connect.getColValInt("ListID");
      const char* value = connect.getColVal(column);
      if (previous == value) continue;
      previous = value;
      // Per-row lines are information (level 3): a list may hold a million rows.
      UX_LOG(3, kLogFile, "_deserialize_list",
             "url_rule_serialization_io::_deserialize_list, add %s, id %d", value, list_id);
      load.target()._do_parse_and_addlist(value, true, allow_policy, list_id);
      UX_LOG(3, kLogFile, "_deserialize_list",
             "url_rule_serialization_io::_deserialize_list, added %s", value);
    }
  } catch (const UxDbException&) {
    UX_LOG(1, kLogFile, "_deserialize_list", "url_rule_serialization_io::_deserialize_list() failed");
    throw;
  }
  return true;
}

bool url_matching_module::deserialization(int list_id, int list_type, const char* sql_path,
                                          UxDbAgent& agent) {
  if (user_graph_.init(agent, sql_path, list_id, list_type) != 0) return false;
  return user_graph_.deserialize_db(list_id, list_type, agent);
}
