#include "ux_LOG_TextLogUtil.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "product_path.h"
#include "ux_LOG_LogFiles.h"
#include "ux_Time.h"

int ux_LOG_TextLogUtil::DeleteLogsByAge(const char* directory, const char* name, int days) {
  if (directory == nullptr) return -1;
  std::string base = ux_log_files::BaseName(name);
  std::string dir = bexo::ProductPath(directory);
  if (base.empty() || access(dir.c_str(), R_OK | X_OK) != 0) return -1;
  ux_Time today;
  today.get_current_time();
  int removed = 0;
  for (const ux_log_files::RotatedFile& file : ux_log_files::ListRotated(dir, base)) {
    struct stat info;
    if (stat(file.path.c_str(), &info) != 0) continue;
    ux_Time written;
    written.set_from_time_t(info.st_mtime);
    if (written.get_day_gap(today) > days && unlink(file.path.c_str()) == 0) ++removed;
  }
  return removed;
}
