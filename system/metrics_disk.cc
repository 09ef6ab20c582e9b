// Disk counters: file-system sizes, the own files under a directory, the
// database directory, and the mounted file systems.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "metrics.h"
#include "bexo_util.h"
#include "proc_files.h"
#include "product_path.h"
#include "system/disk_usage.h"
#include "system/mount_table.h"

bool getProcessDiskUsage(const char* path, uid_t uid, unsigned long long& total) {
  DIR* dir = opendir(path);
  if (dir == nullptr) return errno == ENOENT || errno == EACCES;
  char child[4096];
  bool ok = true;
  while (const dirent* entry = readdir(dir)) {
    bexo_snprintf(child, sizeof child, "%.4095s/%s", path, entry->d_name);
    struct stat st;
    if (lstat(child, &st) != 0) {
      printf("errno %d\n", errno);
      ok = false;
      break;
    }
    if (st.st_uid == uid) {
      if (st.st_nlink == 0) {
        printf("hard link count of [%s] is >0, file might be deleted or file system is corrupted\n",
               child);
      } else {
        total += static_cast<unsigned long long>(st.st_blocks) / 2 / st.st_nlink;
      }
    }
    if (S_ISDIR(st.st_mode) && strcmp(entry->d_name, ".") != 0 &&
        strcmp(entry->d_name, "..") != 0 && !getProcessDiskUsage(child, uid, total)) {
      ok = false;
      break;
    }
  }
  closedir(dir);
  return ok;
}

bool MetricGetFileSystemUtilization(const char* path, unsigned long long& used,
                                    unsigned long long& total) {
  used = total = 0;
  struct statvfs fs;
  if (statvfs(path, &fs) != 0) return errno == ENOENT;
  bexo_metrics::FileSystemSizes(fs, used, total);
  return true;
}

bool MetricGetFileSystemUtilization(const char* path, unsigned long long& own,
                                    unsigned long long& used, unsigned long long& total) {
  own = 0;
  if (!MetricGetFileSystemUtilization(path, used, total)) return false;
  if (!getProcessDiskUsage(path, getuid(), own)) {
    own = used = total = 0;
    return false;
  }
  return true;
}

bool MetricGetDBUtilization(unsigned long long& dbUsed, unsigned long long& dbAvailable) {
  dbUsed = dbAvailable = 0;
  unsigned long long used, total;
  const std::string dir = bexo::ProductPath("/etc/kvelo/postgres");
  if (!MetricGetFileSystemUtilization(dir.c_str(), dbUsed, used, total)) return false;
  dbAvailable = total - used + dbUsed;
  return true;
}

bool MetricGetMountInfo(const char* path, char* mountPoint, char* device) {
  mountPoint[0] = device[0] = '\0';
  struct stat st;
  if (stat(path, &st) != 0) return false;
  FILE* table = bexo::OpenProcFile("mounts");
  if (table == nullptr) return false;
  const bool found = bexo_metrics::FindMountOnDevice(table, st.st_dev, mountPoint, device);
  fclose(table);
  return found;
}

int MetricEnumFileSystems(unsigned int* size, MetricFileSystemInfo* buffer) {
  if (size == nullptr) return -1;
  FILE* table = bexo::OpenProcFile("mounts");
  if (table == nullptr) return -1;
  const int result = bexo_metrics::EnumMountTable(table, size, buffer);
  fclose(table);
  return result;
}
