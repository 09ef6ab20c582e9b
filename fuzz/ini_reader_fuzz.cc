// Feeds arbitrary bytes to the INI readers as a file: the first bytes choose
// the section, key and buffer size asked for.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ConfigFile.h"
#include "PrivateProfile.h"

namespace {

std::string TempFile() {
  static std::string path = [] {
    const char* tmp = getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/ini_reader_fuzz." + std::to_string(getpid());
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned buffer_size = data[0] % 64;  // includes 0 and tiny buffers
  const uint8_t mode = data[1];
  std::string content(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::string path = TempFile();
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  fwrite(content.data(), 1, content.size(), file);
  fclose(file);

  // Section and key names taken from the content itself, so they sometimes match.
  std::string section = content.substr(0, content.find_first_of("]\n"));
  if (!section.empty() && section[0] == '[') section.erase(0, 1);
  std::string key = content.substr(content.find('\n') == std::string::npos ? 0 : content.find('\n') + 1, 8);

  std::vector<char> buffer(buffer_size + 1, 'Z');
  const char* s = (mode & 1) ? nullptr : section.c_str();
  const char* k = (mode & 2) ? nullptr : key.c_str();
  int length = GetPrivateProfileString(s, k, (mode & 4) ? "default" : nullptr, buffer.data(),
                                       buffer_size, path.c_str());
  if (buffer_size > 0 && (length < 0 || static_cast<unsigned>(length) >= buffer_size)) abort();
  if (buffer[buffer_size] != 'Z') abort();  // wrote past the size it was given
  GetPrivateProfileInt(section.c_str(), key.c_str(), 7, path.c_str());
  if (mode & 8) WritePrivateProfileString(section.c_str(), (mode & 16) ? nullptr : key.c_str(),
                                          (mode & 32) ? nullptr : "v", path.c_str());
  ConfigFile config(path);
  config.get_value(section, key);
  unlink(path.c_str());
  return 0;
}
