#include "ux_LOG_EntryJson.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

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

// Reads `count` digits; false on anything else.
bool Digits(const char* text, int count, int* value) {
  int result = 0;
  for (int i = 0; i < count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    result = result * 10 + (text[i] - '0');
  }
  *value = result;
  return true;
}

bool ParseTime(const char* text, size_t length, struct timespec* moment, int32_t* offset) {
  if (length != kTimeLength || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
      text[13] != ':' || text[16] != ':' || text[19] != '.' ||
      (text[26] != '+' && text[26] != '-') || text[29] != ':') {
    return false;
  }
  int year, month, day, hour, minute, second, micros, offset_hours, offset_minutes;
  if (!Digits(text, 4, &year) || !Digits(text + 5, 2, &month) || !Digits(text + 8, 2, &day) ||
      !Digits(text + 11, 2, &hour) || !Digits(text + 14, 2, &minute) ||
      !Digits(text + 17, 2, &second) || !Digits(text + 20, 6, &micros) ||
      !Digits(text + 27, 2, &offset_hours) || !Digits(text + 30, 2, &offset_minutes)) {
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

bool ReadUint(const rapidjson::Value& object, const char* key, unsigned int* value) {
  auto member = object.FindMember(key);
  if (member == object.MemberEnd() || !member->value.IsUint()) return false;
  *value = member->value.GetUint();
  return true;
}

bool ReadAttrib(const rapidjson::Value& attrib, ux_LOG_LogEntry* entry) {
  if (!attrib.IsObject()) return false;
  auto name = attrib.FindMember("name");
  auto type = attrib.FindMember("type");
  auto value = attrib.FindMember("value");
  if (name == attrib.MemberEnd() || !name->value.IsString() || name->value.GetStringLength() == 0 ||
      type == attrib.MemberEnd() || !type->value.IsString() || value == attrib.MemberEnd()) {
    return false;
  }
  // Names and texts were C strings when written: an embedded NUL means damage.
  const char* key = name->value.GetString();
  size_t key_length = name->value.GetStringLength();
  if (strlen(key) != key_length) return false;
  const char* type_name = type->value.GetString();
  const rapidjson::Value& v = value->value;
  if (strcmp(type_name, "string") == 0) {
    if (!v.IsString() || strlen(v.GetString()) != v.GetStringLength()) return false;
    entry->AddReadAttrib(key, key_length, ux_LOG_AttribType::kString, v.GetString(),
                         v.GetStringLength(), 0);
  } else if (strcmp(type_name, "u8") == 0) {
    if (!v.IsUint() || v.GetUint() > 255) return false;
    entry->AddReadAttrib(key, key_length, ux_LOG_AttribType::kU8, "", 0, v.GetUint());
  } else if (strcmp(type_name, "u32") == 0) {
    if (!v.IsUint()) return false;
    entry->AddReadAttrib(key, key_length, ux_LOG_AttribType::kU32, "", 0, v.GetUint());
  } else if (strcmp(type_name, "s32") == 0) {
    if (!v.IsInt()) return false;
    entry->AddReadAttrib(key, key_length, ux_LOG_AttribType::kS32, "", 0, v.GetInt());
  } else {
    return false;
  }
  return true;
}

}  // namespace

void ux_LOG_EncodeEntry(const ux_LOG_LogEntry& entry, std::string* line) {
  thread_local rapidjson::StringBuffer buffer;
  buffer.Clear();
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  char time_text[96];
  FormatTime(entry, time_text);
  writer.StartObject();
  writer.Key("time");
  writer.String(time_text);
  writer.Key("kind");
  writer.Uint(entry.GetKind());
  writer.Key("id");
  writer.Uint(entry.GetEntryID());
  writer.Key("level");
  writer.Uint(entry.GetLogLevel());
  writer.Key("attrs");
  writer.StartArray();
  for (const ux_LOG_Attrib& attrib : entry.GetAttribs()) {
    writer.StartObject();
    writer.Key("name");
    writer.String(attrib.name.data(), static_cast<rapidjson::SizeType>(attrib.name.size()));
    writer.Key("type");
    writer.String(kTypeNames[static_cast<int>(attrib.type)]);
    writer.Key("value");
    switch (attrib.type) {
      case ux_LOG_AttribType::kString:
        writer.String(attrib.text.data(), static_cast<rapidjson::SizeType>(attrib.text.size()));
        break;
      case ux_LOG_AttribType::kS32:
        writer.Int(static_cast<int>(attrib.number));
        break;
      default:
        writer.Uint(static_cast<unsigned>(attrib.number));
        break;
    }
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
  line->assign(buffer.GetString(), buffer.GetSize());
  line->push_back('\n');
}

bool ux_LOG_DecodeEntry(char* text, ux_LOG_LogEntry* entry) {
  // Small lines parse out of a fixed arena; larger ones spill to the heap.
  char arena[8192];
  rapidjson::MemoryPoolAllocator<> allocator(arena, sizeof arena);
  rapidjson::Document document(&allocator);
  constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseValidateEncodingFlag |
                              rapidjson::kParseIterativeFlag;
  document.ParseInsitu<kFlags>(text);
  if (document.HasParseError() || !document.IsObject()) return false;
  unsigned int kind, id, level;
  if (!ReadUint(document, "kind", &kind) || !ReadUint(document, "id", &id) ||
      !ReadUint(document, "level", &level)) {
    return false;
  }
  auto time = document.FindMember("time");
  struct timespec moment;
  int32_t offset;
  if (time == document.MemberEnd() || !time->value.IsString() ||
      !ParseTime(time->value.GetString(), time->value.GetStringLength(), &moment, &offset)) {
    return false;
  }
  auto attrs = document.FindMember("attrs");
  if (attrs == document.MemberEnd() || !attrs->value.IsArray()) return false;
  entry->Reset(kind, id, level, moment, offset);
  for (const rapidjson::Value& attrib : attrs->value.GetArray()) {
    if (!ReadAttrib(attrib, entry)) return false;
  }
  return true;
}
