#include <stdio.h>
#include <stdlib.h>

#include "CM_log_writer_and_reader.h"
#include "eventlog/structured_log_common.h"
#include "product_path.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_TextLogUtil.h"
#include "ux_Time.h"

namespace {

constexpr char kBookmarkSuffix[] = ".bmk";

ux_Time DateOf(const ux_LOG_LogEntry& entry) {
  int year, month, day;
  entry.GetEventLocalDate(year, month, day);
  return ux_Time(year, month, day);
}

}  // namespace

CM_log_reader::CM_log_reader(const char* definitionPath, const char* logDirectory,
                             const char* logName, int saveStep, int maxEntryBytes)
    : save_step_(saveStep) {
  puts("in constructor.");  // always printed: collectors' scripts look for it
  Setup(definitionPath, logDirectory, logName, nullptr, maxEntryBytes);
}

CM_log_reader::CM_log_reader(const char* definitionPath, const char* logDirectory,
                             const char* logName, const char* bookmarkName, int saveStep,
                             int maxEntryBytes)
    : save_step_(saveStep) {
  Setup(definitionPath, logDirectory, logName, bookmarkName, maxEntryBytes);
}

CM_log_reader::~CM_log_reader() = default;

void CM_log_reader::Setup(const char* definitionPath, const char* logDirectory,
                          const char* logName, const char* bookmarkName, int maxEntryBytes) {
  ux_LOG_LogConfig::SetDefinitionPath(definitionPath ? definitionPath
                                                     : bexo_slog::kDefaultDefinitionPath);
  ux_LOG_LogConfig::SetActionAttrLenExceed(1);
  std::string configured_directory;
  if (!bexo_slog::ApplyConfig(&configured_directory)) return;
  log_directory_ = bexo::ProductPath(logDirectory ? logDirectory : configured_directory);
  log_name_ = logName ? logName : "";
  try {
    cursor_.reset(new ux_LOG_TextLogCursor(log_directory_.c_str(), logName,
                                           static_cast<unsigned int>(maxEntryBytes), true));
  } catch (const ux_EXCEPTION_base& e) {
    printf("ERROR : %s \n", e.get_message());
    return;
  }
  std::string bookmark = bookmarkName ? bookmarkName : log_name_;
  if (bookmark.find('/') == std::string::npos) {
    bookmark_path_ = log_directory_ + "/" + bookmark + kBookmarkSuffix;
  } else {
    bookmark_path_ = bexo::ProductPath(bookmark) + kBookmarkSuffix;
  }
  FILE* existing = fopen(bookmark_path_.c_str(), "r");
  if (existing != nullptr) {
    fclose(existing);
    if (_read_from_bookmark_file() != 0) return;
  }
  ready_ = true;
}

int CM_log_reader::_read_from_bookmark_file() {
  FILE* file = fopen(bookmark_path_.c_str(), "r");
  if (file == nullptr) return -1;
  char line[256];
  bool read = fgets(line, sizeof line, file) != nullptr;
  fclose(file);
  if (!read) return -1;
  int saved = static_cast<int>(strtol(line, nullptr, 10));
  skip_count_ = saved;
  day_start_ = saved;
  return 0;
}

int CM_log_reader::_write_to_bookmark_file(int position) {
  if (bookmark_path_.empty()) return 0;
  FILE* file = fopen(bookmark_path_.c_str(), "w");
  if (file == nullptr) return -1;
  fprintf(file, "%d", position);
  return fclose(file) == 0 ? 0 : -1;
}

int CM_log_reader::next(ux_LOG_LogEntry& entry) {
  if (!ready_) return 0;
  ux_Time today;
  today.get_current_time();
  ux_Time entry_day, previous_day;
  try {
    for (;;) {
      if (!cursor_->Next(entry)) {
        if (day_start_ != 0) position_ = day_start_;
        return 0;
      }
      entry_day = DateOf(entry);
      if (day_start_ == skip_count_) previous_day = entry_day;
      if (skip_count_ >= 1) {
        // Skipping what was delivered before the bookmark was saved; note
        // where each day begins.
        if (entry_day.get_day_gap(previous_day) != 0) {
          previous_day = entry_day;
          day_start_ = skip_count_;
        }
        --skip_count_;
        continue;
      }
      int distance = entry_day.get_day_gap(today);
      if (distance < newest_day_distance_) {
        // A newer day begins.
        newest_day_distance_ = distance;
        position_ = 0;
        if (skip_count_ == 0) {
          position_ = entry_day.get_day_gap(previous_day) == 0 ? day_start_ : 0;
          day_start_ = 0;
          skip_count_ = -1;
        }
        next_save_ = position_ + save_step_;
        _write_to_bookmark_file(next_save_);
        ux_LOG_TextLogUtil::DeleteLogsByAge(log_directory_.c_str(), log_name_.c_str(),
                                            newest_day_distance_ + 1);
      } else if (position_ >= next_save_) {
        next_save_ += save_step_;
        _write_to_bookmark_file(next_save_);
      }
      ++position_;
      return 1;
    }
  } catch (const ux_EXCEPTION_base& e) {
    printf("ERROR : %s \n", e.get_message());
    return 0;
  }
}
