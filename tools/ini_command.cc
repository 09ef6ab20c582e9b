// bexo ini: read and write INI profile files from the shell.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ConfigFile.h"
#include "PrivateProfile.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo ini get FILE SECTION [KEY]     print a value, or the section's key=value lines\n"
    "       bexo ini set FILE SECTION KEY [VALUE]  set a key; without VALUE delete it\n"
    "       bexo ini remove-section FILE SECTION   delete a section\n"
    "       bexo ini sections FILE                 list the section names in file order";

// Never a value in a real file: tells "missing" apart from any default.
constexpr char kMissing[] = "\x1f\x1e";

int Usage() { return CommandError(kExitUsage, kUsage); }

int Get(const char* file, const char* section, const char* key) {
  if (RequireReadableFile(file) != kExitOk) return kExitFailure;
  if (key != nullptr) {
    std::vector<char> value(64 * 1024);
    GetPrivateProfileString(section, key, kMissing, value.data(), value.size(), file);
    if (strcmp(value.data(), kMissing) == 0) {
      return CommandError(kExitFailure, std::string("no key '") + key + "' in section '" + section + "'");
    }
    printf("%s\n", value.data());
    return kExitOk;
  }
  ConfigFile config(file);
  for (const auto& entry : config.GetRawData()) {
    if (strcasecmp(entry.first.c_str(), section) != 0) continue;
    for (const auto& pair : entry.second) printf("%s=%s\n", pair.first.c_str(), pair.second.c_str());
    return kExitOk;
  }
  return CommandError(kExitFailure, std::string("no section '") + section + "'");
}

int Write(const char* file, const char* section, const char* key, const char* value) {
  if (access(file, F_OK) != 0) {
    return CommandError(kExitFailure, std::string(file) + " does not exist (create it first)");
  }
  if (RequireReadableFile(file) != kExitOk) return kExitFailure;
  if (WritePrivateProfileString(section, key, value, file) != 1) {
    return CommandError(kExitFailure, std::string("could not rewrite ") + file +
                                          " (if it is gone, its content is in " + file + "-)");
  }
  return kExitOk;
}

int Sections(const char* file) {
  if (RequireReadableFile(file) != kExitOk) return kExitFailure;
  std::vector<char> names(1024 * 1024);
  int length = GetPrivateProfileString(nullptr, nullptr, "", names.data(), names.size(), file);
  for (int pos = 0; pos < length && names[pos] != '\0'; pos += strlen(&names[pos]) + 1) {
    printf("%s\n", &names[pos]);
  }
  return kExitOk;
}

int RunIni(int argc, char** argv) {
  if (argc < 3) return Usage();
  std::string verb = argv[1];
  if (verb == "get" && (argc == 4 || argc == 5)) return Get(argv[2], argv[3], argc == 5 ? argv[4] : nullptr);
  if (verb == "set" && (argc == 5 || argc == 6)) {
    return Write(argv[2], argv[3], argv[4], argc == 6 ? argv[5] : nullptr);
  }
  if (verb == "remove-section" && argc == 4) return Write(argv[2], argv[3], nullptr, nullptr);
  if (verb == "sections" && argc == 3) return Sections(argv[2]);
  return Usage();
}

}  // namespace

BEXO_COMMAND("ini", "read and write INI profile files (get, set, remove-section, sections)", RunIni);
