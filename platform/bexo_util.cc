#include "bexo_util.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ConfigFile.h"
#include "product_path.h"

namespace {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string CommonSetting(const char* key) {
  ConfigFile config(bexo::ProductPath(kConfigPath));
  return config.get_value("Common", key).value_or("");
}

}  // namespace

int bexo_snprintf(char* buffer, size_t size, const char* format, ...) {
  if (buffer == nullptr || size == 0) return 0;
  va_list args;
  va_start(args, format);
  int needed = vsnprintf(buffer, size, format, args);
  va_end(args);
  if (needed < 0) {
    buffer[0] = '\0';
    return -1;
  }
  return static_cast<size_t>(needed) < size ? needed : static_cast<int>(size - 1);
}

int hexto4u(const char* text) {
  if (text == nullptr) return -1;
  if (text[0] == '%') ++text;
  if (text[0] == '\0') return -1;
  int high = HexDigit(text[0]);
  int low = HexDigit(text[1]);
  if (high < 0 || low < 0) return -1;
  return high * 16 + low;
}

int ReadPath(char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return -1;
  std::string path = CommonSetting("InstallPath");
  if (path.empty()) path = "/usr/bexo/";
  path = bexo::ProductPath(path);
  if (path.size() >= static_cast<size_t>(size)) {
    buffer[0] = '\0';
    return -1;
  }
  memcpy(buffer, path.c_str(), path.size() + 1);
  return static_cast<int>(path.size());
}

bool CheckPathLastSlash(const char* path) {
  if (path == nullptr) return false;
  size_t length = strlen(path);
  return length > 0 && path[length - 1] == '/';
}

int ReadableFileError(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat st;
  int error = fstat(fd, &st) != 0 ? errno : S_ISDIR(st.st_mode) ? EISDIR : 0;
  close(fd);
  return error;
}

void GetTZOffset(char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return;
  buffer[0] = '\0';
  std::string zone = CommonSetting("TimeZone");
  if (zone.size() < static_cast<size_t>(size)) memcpy(buffer, zone.c_str(), zone.size() + 1);
}

bool ReadFixedDigits(const char* text, int count, int* out) {
  int value = 0;
  for (int i = 0; i < count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    value = value * 10 + (text[i] - '0');
  }
  *out = value;
  return true;
}
