#include "ux_LOG_LogDevice.h"

#include <errno.h>
#include <sys/stat.h>

#include "product_path.h"
#include "ux_LOG_LogFiles.h"
#include "ux_LOG_TextLog.h"

namespace {

ux_LOG_TextLog* OpenTextLog(const char* directory, bool create, mode_t mode,
                            ux_LOG_TextLog* (*make)(const std::string&, const std::string&, mode_t),
                            const char* name) {
  if (directory == nullptr || *directory == '\0') return nullptr;
  std::string base = ux_log_files::BaseName(name);
  if (base.empty()) return nullptr;
  std::string dir = bexo::ProductPath(directory);
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  if (create && bexo::MakeParentDirectories(dir + "/") != 0) return nullptr;
  struct stat info;
  if (stat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return nullptr;
  return make(dir, base, mode);
}

}  // namespace

// The constructor is private to ux_LOG_TextLog; this friend builds and opens it.
ux_LOG_TextLog* ux_LOG_LogDevice::GetReadableTextLog(const char* directory, const char* name,
                                                     bool create, const char*, const char*, bool) {
  return OpenTextLog(directory, create, 0664, MakeTextLog, name);
}

ux_LOG_TextLog* ux_LOG_LogDevice::GetTextLog(const char* directory, const char* name, bool create,
                                             const char*, const char*, bool) {
  return OpenTextLog(directory, create, 0660, MakeTextLog, name);
}

ux_LOG_TextLog* ux_LOG_LogDevice::MakeTextLog(const std::string& directory,
                                              const std::string& name, mode_t mode) {
  ux_LOG_TextLog* log = new ux_LOG_TextLog(directory, name, mode);
  if (!log->Open()) {
    delete log;
    return nullptr;
  }
  return log;
}

void ux_LOG_LogDevice::ReleaseLog() { delete this; }

ux_LOG_LogDevice::~ux_LOG_LogDevice() = default;
