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

// Reads one line's events straight into the entry, without building a
// tree. Unknown keys are skipped whatever their value; a known key twice, a
// value of the wrong kind or a missing part rejects the line.
class EntryReader {
 public:
  explicit EntryReader(ux_LOG_LogEntry* entry) : entry_(entry) { entry_->ClearForRead(); }

  // After a successful parse: whether the line was a whole entry.
  bool Finish() {
    if (!done_ || seen_ != kAllTop) return false;
    entry_->SetReadHeader(kind_, id_, level_, moment_, offset_);
    return true;
  }

  bool null() { return Scalar(Value::kOther); }
  bool boolean(bool) { return Scalar(Value::kOther); }
  bool number_float(double, const std::string&) { return Scalar(Value::kOther); }
  bool binary(Json::binary_t&) { return false; }
  bool number_unsigned(uint64_t value) {
    number_ = static_cast<int64_t>(value > kMaxU32 ? kMaxU32 + 1 : value);
    return Scalar(Value::kNumber);
  }
  bool number_integer(int64_t value) {
    number_ = value;
    return Scalar(Value::kNumber);
  }
  bool string(std::string& value) {
    text_.swap(value);
    return Scalar(Value::kText);
  }
  bool key(std::string& name) {
    if (skip_ > 0) return true;
    key_.swap(name);
    return true;
  }
  bool start_object(size_t) { return Open(true); }
  bool start_array(size_t) { return Open(false); }
  bool end_object() { return Close(); }
  bool end_array() { return Close(); }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

 private:
  enum class Value { kText, kNumber, kOther };
  static constexpr int64_t kMaxU32 = std::numeric_limits<uint32_t>::max();
  enum : unsigned { kTime = 1, kKind = 2, kId = 4, kLevel = 8, kAttrs = 16, kAllTop = 31 };
  enum : unsigned { kName = 1, kType = 2, kValue = 4 };

  bool Mark(unsigned& seen, unsigned bit) {
    if (seen & bit) return false;  // a known key twice
    seen |= bit;
    return true;
  }

  bool Scalar(Value value) {
    if (skip_ > 0) return true;
    if (depth_ == 1) {
      if (key_ == "time") {
        return Mark(seen_, kTime) && value == Value::kText &&
               ParseTime(text_.data(), text_.size(), &moment_, &offset_);
      }
      unsigned* target = key_ == "kind" ? &kind_ : key_ == "id" ? &id_ : key_ == "level" ? &level_ : nullptr;
      if (target == nullptr) return key_ != "attrs";  // other keys are not ours
      unsigned bit = key_ == "kind" ? kKind : key_ == "id" ? kId : kLevel;
      if (!Mark(seen_, bit) || value != Value::kNumber || number_ < 0 || number_ > kMaxU32) return false;
      *target = static_cast<unsigned>(number_);
      return true;
    }
    if (depth_ == 3) {
      if (key_ == "name" || key_ == "type") {
        if (!Mark(attrib_seen_, key_ == "name" ? kName : kType) || value != Value::kText) return false;
        (key_ == "name" ? name_ : type_).swap(text_);
        return true;
      }
      if (key_ == "value") {
        if (!Mark(attrib_seen_, kValue) || value == Value::kOther) return false;
        value_is_text_ = value == Value::kText;
        if (value_is_text_) value_text_.swap(text_);
        value_number_ = number_;
        return true;
      }
      return true;
    }
    return false;  // a bare value, or one inside "attrs"
  }

  bool Open(bool object) {
    if (skip_ > 0) {
      ++skip_;
      return true;
    }
    if (depth_ == 0) {
      if (!object) return false;
    } else if (depth_ == 1) {
      if (key_ == "attrs") {
        if (object || !Mark(seen_, kAttrs)) return false;
      } else if (key_ == "time" || key_ == "kind" || key_ == "id" || key_ == "level") {
        return false;
      } else {
        skip_ = 1;  // a value of a key that is not ours
        return true;
      }
    } else if (depth_ == 2) {
      if (!object) return false;
      attrib_seen_ = 0;
    } else {
      if (key_ == "name" || key_ == "type" || key_ == "value") return false;
      skip_ = 1;
      return true;
    }
    ++depth_;
    return true;
  }

  bool Close() {
    if (skip_ > 0) {
      --skip_;
      return true;
    }
    if (depth_ == 3 && !AddAttrib()) return false;
    if (--depth_ == 0) done_ = true;
    return true;
  }

  // Names and texts were C strings when written: an embedded NUL means damage.
  bool AddAttrib() {
    if (attrib_seen_ != (kName | kType | kValue) || name_.empty() ||
        name_.find('\0') != std::string::npos) {
      return false;
    }
    if (type_ == "string") {
      if (!value_is_text_ || value_text_.find('\0') != std::string::npos) return false;
      entry_->AddReadAttrib(name_.data(), name_.size(), ux_LOG_AttribType::kString,
                            value_text_.data(), value_text_.size(), 0);
      return true;
    }
    if (value_is_text_) return false;
    int64_t n = value_number_;
    ux_LOG_AttribType type;
    if (type_ == "u8" && n >= 0 && n <= 255) {
      type = ux_LOG_AttribType::kU8;
    } else if (type_ == "u32" && n >= 0 && n <= kMaxU32) {
      type = ux_LOG_AttribType::kU32;
    } else if (type_ == "s32" && n >= std::numeric_limits<int32_t>::min() &&
               n <= std::numeric_limits<int32_t>::max()) {
      type = ux_LOG_AttribType::kS32;
    } else {
      return false;
    }
    entry_->AddReadAttrib(name_.data(), name_.size(), type, "", 0, n);
    return true;
  }

  ux_LOG_LogEntry* entry_;
  int depth_ = 0;  // 1 in the entry, 2 in "attrs", 3 in an attribute
  int skip_ = 0;   // nesting inside a value being skipped
  bool done_ = false;
  std::string key_, text_;
  int64_t number_ = 0;
  unsigned seen_ = 0, kind_ = 0, id_ = 0, level_ = 0;
  struct timespec moment_ = {0, 0};
  int32_t offset_ = 0;
  unsigned attrib_seen_ = 0;
  std::string name_, type_, value_text_;
  bool value_is_text_ = false;
  int64_t value_number_ = 0;
};

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
  EntryReader reader(entry);
  return Json::sax_parse(text, text + length, &reader) && reader.Finish();
}
