#include "ux_LOG_LogEntry.h"

#include <string.h>

#include <utf8.h>

#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "wall_clock.h"

namespace {

std::string Name(const char* name) {
  if (name == nullptr || *name == '\0') throw ux_EXCEPTION_base("ux_LOG_LogEntry: attribute without a name");
  return name;
}

// Cuts `text` to at most `limit` bytes without splitting a UTF-8 sequence.
void CutAtCharacter(std::string& text, size_t limit) {
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  text.resize(end);
}

}  // namespace

ux_LOG_LogEntry::ux_LOG_LogEntry() : ux_LOG_LogEntry(0, 0) {}

ux_LOG_LogEntry::ux_LOG_LogEntry(unsigned int kind, unsigned int level)
    : kind_(kind), id_(kind), level_(level), time_(bexo::WallClockNow()) {
  struct tm local;
  localtime_r(&time_.tv_sec, &local);
  utc_offset_ = static_cast<int32_t>(local.tm_gmtoff);
}

void ux_LOG_LogEntry::AddAttribMBStr(const char* name, const char* text) {
  std::string key = Name(name);
  if (text == nullptr) throw ux_EXCEPTION_base("ux_LOG_LogEntry: attribute " + key + " has no value");
  size_t length = strlen(text);
  std::string value;
  if (utf8::find_invalid(text, text + length) == text + length) {
    value.assign(text, length);
  } else {
    utf8::replace_invalid(text, text + length, std::back_inserter(value));
  }
  if (value.size() > kMaxStringBytes) {
    if (ux_LOG_LogConfig::GetActionAttrLenExceed() != 1) {
      throw ux_EXCEPTION_base("ux_LOG_LogEntry: attribute " + key + " exceeds " +
                              std::to_string(kMaxStringBytes) + " bytes");
    }
    CutAtCharacter(value, kMaxStringBytes);
  }
  attribs_.push_back({std::move(key), ux_LOG_AttribType::kString, std::move(value), 0});
}

void ux_LOG_LogEntry::Add(const char* name, ux_LOG_AttribType type, int64_t number) {
  attribs_.push_back({Name(name), type, std::string(), number});
}

void ux_LOG_LogEntry::AddAttrib1u(const char* name, uint8_t value) {
  Add(name, ux_LOG_AttribType::kU8, value);
}

void ux_LOG_LogEntry::AddAttrib4u(const char* name, uint32_t value) {
  Add(name, ux_LOG_AttribType::kU32, value);
}

void ux_LOG_LogEntry::AddAttrib4(const char* name, int32_t value) {
  Add(name, ux_LOG_AttribType::kS32, value);
}

void ux_LOG_LogEntry::GetEventLocalDate(int& year, int& month, int& day) const {
  // The stored offset, not this process's zone: the date the writer saw.
  time_t local_seconds = time_.tv_sec + utc_offset_;
  struct tm fields;
  gmtime_r(&local_seconds, &fields);
  year = fields.tm_year + 1900;
  month = fields.tm_mon + 1;
  day = fields.tm_mday;
}

const ux_LOG_Attrib* ux_LOG_LogEntry::FindAttrib(const char* name) const {
  for (const ux_LOG_Attrib& attrib : attribs_) {
    if (attrib.name == name) return &attrib;
  }
  return nullptr;
}

void ux_LOG_LogEntry::ClearForRead() {
  kind_ = id_ = level_ = 0;
  attribs_.clear();
}

void ux_LOG_LogEntry::SetReadHeader(unsigned int kind, unsigned int id, unsigned int level,
                                    const struct timespec& time, int32_t utc_offset) {
  kind_ = kind;
  id_ = id;
  level_ = level;
  time_ = time;
  utc_offset_ = utc_offset;
}

void ux_LOG_LogEntry::AddReadAttrib(const char* name, size_t name_length, ux_LOG_AttribType type,
                                    const char* text, size_t text_length, int64_t number) {
  attribs_.push_back({std::string(name, name_length), type, std::string(text, text_length), number});
}
