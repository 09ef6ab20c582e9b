#include "system/mount_table.h"

#include <mntent.h>
#include <string.h>
#include <sys/stat.h>

namespace bexo_metrics {
namespace {

// Longer lines are cut by getmntent_r, which skips the rest of the line.
constexpr int kLineMax = 8192;

}  // namespace

void FileSystemSizes(const struct statvfs& fs, unsigned long long& used,
                     unsigned long long& total) {
  const unsigned long long block = fs.f_bsize;
  const unsigned long long blocks = fs.f_blocks;
  total = blocks * block / 1024;
  used = (blocks - fs.f_bfree) * block / 1024;
}

int EnumMountTable(FILE* table, unsigned int* size, MetricFileSystemInfo* buffer) {
  const size_t capacity = *size;
  char* const base = reinterpret_cast<char*>(buffer);
  size_t strings = capacity;  // offset of the lowest string copied so far
  size_t need = 0;
  int written = 0;
  struct mntent entry;
  char line[kLineMax];
  while (getmntent_r(table, &entry, line, sizeof line) != nullptr) {
    struct statvfs fs;
    if (statvfs(entry.mnt_dir, &fs) != 0) return -1;
    if (fs.f_blocks == 0) continue;
    const size_t dir_length = strlen(entry.mnt_dir) + 1;
    const size_t name_length = strlen(entry.mnt_fsname) + 1;
    need += dir_length + name_length + sizeof(MetricFileSystemInfo);
    if (need > capacity || strcmp(entry.mnt_fsname, "none") == 0) continue;
    MetricFileSystemInfo& record = buffer[written++];
    strings -= dir_length;
    record.mountPoint = static_cast<char*>(memcpy(base + strings, entry.mnt_dir, dir_length));
    strings -= name_length;
    record.device = static_cast<char*>(memcpy(base + strings, entry.mnt_fsname, name_length));
    FileSystemSizes(fs, record.used, record.total);
  }
  if (need > capacity) {
    *size = static_cast<unsigned int>(need);
    return 0;
  }
  return written;
}

bool FindMountOnDevice(FILE* table, dev_t device, char* mountPoint, char* fileSystem) {
  struct mntent entry;
  char line[kLineMax];
  while (getmntent_r(table, &entry, line, sizeof line) != nullptr) {
    struct stat st;
    if (stat(entry.mnt_dir, &st) != 0 || st.st_dev != device) continue;
    strcpy(mountPoint, entry.mnt_dir);
    strcpy(fileSystem, entry.mnt_fsname);
    return true;
  }
  return false;
}

}  // namespace bexo_metrics
