// ux_LOG_LogEntry: one structured log entry: a kind, an identifier (the kind
// unless SetEntryID changes it), a level, the local time it was made, and
// named attributes with a type each (string, u8, u32, s32), kept in the order
// they were added.
//
// String values are UTF-8: invalid bytes become U+FFFD. A value longer than
// kMaxStringBytes is cut at a character boundary when
// ux_LOG_LogConfig::SetActionAttrLenExceed(1) is set, and refused with a
// ux_EXCEPTION_base otherwise (the default); a null value is refused too.
//
// Thread safety: a value type; distinct objects may be used from any thread.
#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "bexo_export.h"

enum class ux_LOG_AttribType : uint8_t { kString, kU8, kU32, kS32 };

struct ux_LOG_Attrib {
  std::string name;
  ux_LOG_AttribType type;
  std::string text;  // kString
  int64_t number;    // the integer types
};

class BEXO_EXPORT ux_LOG_LogEntry {
 public:
  static constexpr size_t kMaxStringBytes = 16384;

  ux_LOG_LogEntry();  // kind 0, level 0
  ux_LOG_LogEntry(unsigned int kind, unsigned int level);

  void AddAttribMBStr(const char* name, const char* text);
  void AddAttrib1u(const char* name, uint8_t value);
  void AddAttrib4u(const char* name, uint32_t value);
  void AddAttrib4(const char* name, int32_t value);

  void SetEntryID(unsigned int id) { id_ = id; }
  void SetLogLevel(unsigned int level) { level_ = level; }
  unsigned int GetKind() const { return kind_; }
  unsigned int GetEntryID() const { return id_; }
  unsigned int GetLogLevel() const { return level_; }

  // The date in the writer's local time zone when the entry was made.
  void GetEventLocalDate(int& year, int& month, int& day) const;
  // The moment, and the writer's UTC offset then, in seconds east.
  const struct timespec& GetEventTime() const { return time_; }
  int32_t GetUtcOffset() const { return utc_offset_; }

  const std::vector<ux_LOG_Attrib>& GetAttribs() const { return attribs_; }
  // The attribute of that name, or null.
  const ux_LOG_Attrib* FindAttrib(const char* name) const;

  // For the reader: an entry as read back from a log, taken as is.
  void ClearForRead();
  void SetReadHeader(unsigned int kind, unsigned int id, unsigned int level,
                     const struct timespec& time, int32_t utc_offset);
  void AddReadAttrib(const char* name, size_t name_length, ux_LOG_AttribType type,
                     const char* text, size_t text_length, int64_t number);

 private:
  void Add(const char* name, ux_LOG_AttribType type, int64_t number);

  unsigned int kind_;
  unsigned int id_;
  unsigned int level_;
  struct timespec time_;
  int32_t utc_offset_;
  std::vector<ux_LOG_Attrib> attribs_;
};
