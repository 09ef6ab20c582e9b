#include "ux_LOG_EntryJson.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <limits>

#include <nlohmann/json.hpp>

#include "bexo_util.h"

namespace {

using Json = nlohmann::json;

constexpr const char* kTypeNames[] = {"string", "u8", "u32", "s32"};

// "YYYY-MM-DDTHH:MM:SS.ffffff+hh:mm": 32 characters.
constexpr size_t kTimeLength = 32;

void FormatTime(const ux_LOG_LogEntry& entry, char (&text)[96]) {
  const struct timespec& time = entry.GetEventTime();
  int32_t offset = entry.GetUtcOffset();
  time_t local_seconds = time.tv_sec + offset;
  struct tm fields;
  gmtime_r(&local_seconds, &fields);
  char sign = offset < 0 ? '-' : '+';
  int32_t magnitude = offset < 0 ? -offset : offset;
  snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06ld%c%02d:%02d",
           fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
           fields.tm_min, fields.tm_sec, static_cast<long>(time.tv_nsec / 1000), sign,
           static_cast<int>(magnitude / 3600), static_cast<int>(magnitude % 3600 / 60));
}

bool ParseTime(const char* text, size_t length, struct timespec* moment, int32_t* offset) {
  if (length != kTimeLength || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
      text[13] != ':' || text[16] != ':' || text[19] != '.' ||
      (text[26] != '+' && text[26] != '-') || text[29] != ':') {
    return false;
  }
  int year, month, day, hour, minute, second, micros, offset_hours, offset_minutes;
  if (!ReadFixedDigits(text, 4, &year) || !ReadFixedDigits(text + 5, 2, &month) ||
      !ReadFixedDigits(text + 8, 2, &day) || !ReadFixedDigits(text + 11, 2, &hour) ||
      !ReadFixedDigits(text + 14, 2, &minute) || !ReadFixedDigits(text + 17, 2, &second) ||
      !ReadFixedDigits(text + 20, 6, &micros) || !ReadFixedDigits(text + 27, 2, &offset_hours) ||
      !ReadFixedDigits(text + 30, 2, &offset_minutes)) {
    return false;
  }
  if (year < 1 || offset_hours > 23 || offset_minutes > 59) return false;
  struct tm fields = {};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  time_t local_seconds = timegm(&fields);
  // timegm normalises out-of-range fields; a changed field means a bad date.
  if (fields.tm_year != year - 1900 || fields.tm_mon != month - 1 || fields.tm_mday != day ||
      fields.tm_hour != hour || fields.tm_min != minute || fields.tm_sec != second) {
    return false;
  }
  *offset = (offset_hours * 3600 + offset_minutes * 60) * (text[26] == '-' ? -1 : 1);
  moment->tv_sec = local_seconds - *offset;
  moment->tv_nsec = static_cast<long>(micros) * 1000L;
  return true;
}

// A string as a JSON string literal, escaped by the library.
void AppendString(std::string& line, const std::string& text) {
  line += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool ReadUint32(const Json& object, const char* key, unsigned int* value) {
  auto member = object.find(key);
  if (member == object.end() || !member->is_number_unsigned() ||
      member->get<uint64_t>() > std::numeric_limits<uint32_t>::max()) {
    return false;
  }
  *value = static_cast<unsigned int>(member->get<uint64_t>());
  return true;
}

// Names and texts were C strings when written: an embedded NUL means damage.
bool IsCString(const Json& value) {
  const std::string& text = value.get_ref<const std::string&>();
  return text.find('\0') == std::string::npos;
}

bool ReadAttrib(const Json& attrib, ux_LOG_LogEntry* entry) {
  if (!attrib.is_object()) return false;
  auto name = attrib.find("name");
  auto type = attrib.find("type");
  auto value = attrib.find("value");
  if (name == attrib.end() || !name->is_string() || name->get_ref<const std::string&>().empty() ||
      !IsCString(*name) || type == attrib.end() || !type->is_string() || value == attrib.end()) {
    return false;
  }
  const std::string& key = name->get_ref<const std::string&>();
  const std::string& type_name = type->get_ref<const std::string&>();
  if (type_name == "string") {
    if (!value->is_string() || !IsCString(*value)) return false;
    const std::string& text = value->get_ref<const std::string&>();
    entry->AddReadAttrib(key.data(), key.size(), ux_LOG_AttribType::kString, text.data(),
                         text.size(), 0);
    return true;
  }
  int64_t number;
  if (value->is_number_unsigned()) {
    uint64_t unsigned_value = value->get<uint64_t>();
    if (unsigned_value > std::numeric_limits<uint32_t>::max()) return false;
    number = static_cast<int64_t>(unsigned_value);
  } else if (value->is_number_integer()) {
    number = value->get<int64_t>();
  } else {
    return false;
  }
  ux_LOG_AttribType kind;
  if (type_name == "u8" && number >= 0 && number <= 255) {
    kind = ux_LOG_AttribType::kU8;
  } else if (type_name == "u32" && number >= 0) {
    kind = ux_LOG_AttribType::kU32;
  } else if (type_name == "s32" && number >= std::numeric_limits<int32_t>::min() &&
             number <= std::numeric_limits<int32_t>::max()) {
    kind = ux_LOG_AttribType::kS32;
  } else {
    return false;
  }
  entry->AddReadAttrib(key.data(), key.size(), kind, "", 0, number);
  return true;
}

}  // namespace

void ux_LOG_EncodeEntry(const ux_LOG_LogEntry& entry, std::string* line) {
  char time_text[96];
  FormatTime(entry, time_text);
  std::string& out = *line;
  out.clear();
  out += "{\"time\":\"";
  out += time_text;
  out += "\",\"kind\":" + std::to_string(entry.GetKind());
  out += ",\"id\":" + std::to_string(entry.GetEntryID());
  out += ",\"level\":" + std::to_string(entry.GetLogLevel());
  out += ",\"attrs\":[";
  bool first = true;
  for (const ux_LOG_Attrib& attrib : entry.GetAttribs()) {
    out += first ? "{\"name\":" : ",{\"name\":";
    first = false;
    AppendString(out, attrib.name);
    out += ",\"type\":\"";
    out += kTypeNames[static_cast<int>(attrib.type)];
    out += "\",\"value\":";
    if (attrib.type == ux_LOG_AttribType::kString) {
      AppendString(out, attrib.text);
    } else {
      out += std::to_string(attrib.number);
    }
    out += '}';
  }
  out += "]}\n";
}

bool ux_LOG_DecodeEntry(const char* text, size_t length, ux_LOG_LogEntry* entry) {
  // No exceptions: a damaged line gives a discarded value.
  Json document = Json::parse(text, text + length, nullptr, false);
  if (!document.is_object()) return false;
  unsigned int kind, id, level;
  if (!ReadUint32(document, "kind", &kind) || !ReadUint32(document, "id", &id) ||
      !ReadUint32(document, "level", &level)) {
    return false;
  }
  auto time = document.find("time");
  struct timespec moment;
  int32_t offset;
  if (time == document.end() || !time->is_string()) return false;
  const std::string& time_text = time->get_ref<const std::string&>();
  if (!ParseTime(time_text.data(), time_text.size(), &moment, &offset)) return false;
  auto attrs = document.find("attrs");
  if (attrs == document.end() || !attrs->is_array()) return false;
  entry->Reset(kind, id, level, moment, offset);
  for (const Json& attrib : *attrs) {
    if (!ReadAttrib(attrib, entry)) return false;
  }
  return true;
}
