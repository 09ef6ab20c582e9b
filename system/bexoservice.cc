// Service control through the daemons' init scripts and the testdb script.
#include "bexoservice.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <string>

#include "bexo_util.h"
#include "product_path.h"
#include "process_spawn.h"

namespace {

constexpr size_t kCommandMax = 4096;
constexpr size_t kStatusCommandMax = 256;
constexpr size_t kTestdbResultMax = 2048;
constexpr char kGenericTestdbError[] =
    "<connectdb><error_msg>Generic error.</error_msg><error_no>0</error_no></connectdb>";

// "<install dir><script> <verb>" with a "/" between them unless the install
// directory already ends in one, then `suffix`.
void ScriptCommand(char* command, const char* script, const char* verb, const char* suffix) {
  char install[1024];
  if (ReadPath(install, sizeof install) < 0) install[0] = '\0';
  const char* separator = CheckPathLastSlash(install) ? "" : "/";
  snprintf(command, kCommandMax, "%s%s%s %s%s", install, separator, script, verb, suffix);
}

int RunScript(const char* script, const char* verb) {
  char command[kCommandMax];
  ScriptCommand(command, script, verb, " > /dev/null");
  return system_with_fd_closed(command);
}

// Up to 2048 bytes of the file, stopping early at a 0xFF byte.
std::string ReadTestdbResult(const char* path) {
  std::string text;
  FILE* file = fopen(path, "re");
  if (file == nullptr) return text;
  int c;
  while (text.size() < kTestdbResultMax && (c = getc(file)) != EOF && c != 0xFF) {
    text += static_cast<char>(c);
  }
  fclose(file);
  return text;
}

// Copies at most `outSize` bytes; `out` was zeroed, so a shorter copy ends in NUL.
void CopyAnswer(char* out, int outSize, const char* text, size_t length) {
  if (outSize <= 0) return;
  memcpy(out, text, length < static_cast<size_t>(outSize) ? length : static_cast<size_t>(outSize));
}

}  // namespace

int system_with_fd_closed(const char* command) { return bexo::RunShellClosingDescriptors(command); }

int StartBEXOService(const char* script) { return RunScript(script, "start"); }

int StopBEXOService(const char* script) { return RunScript(script, "stop"); }

bool GetBEXOServiceStatus(const char* name) {
  char command[kStatusCommandMax];
  snprintf(command, sizeof command, "ps -ef | grep %s | grep -v grep > /dev/null 2>&1", name);
  return system_with_fd_closed(command) == 0;
}

int signalConfigChange(const char* script, const char* argument) {
  char command[kCommandMax];
  ScriptCommand(command, script, argument, " > /dev/null 2>&1");
  printf("cmdstr: %s\n", command);
  if (strcasecmp(script, "S99KVwmid") == 0) return bexo::RunShellInheritingDescriptors(command);
  if (strcasecmp(script, "S99KVhaagent") == 0) {
    const std::string helper = bexo::ProductPath("/usr/bexo/AdminUI/uihelper");
    char wrapped[kCommandMax + 64];
    snprintf(wrapped, sizeof wrapped, "%s \"%s\"", helper.c_str(), command);
    return system_with_fd_closed(wrapped);
  }
  return system_with_fd_closed(command);
}

void call_testdb(char* out, int outSize, int mode, const char* a, const char* b, const char* c) {
  if (outSize > 0) memset(out, 0, static_cast<size_t>(outSize));
  // Glued to the configuration file's name, not placed in its directory:
  // other tools look for the file under exactly this name.
  char result_file[1024];
  snprintf(result_file, sizeof result_file, "%stestdbresult.%d",
           bexo::ProductPath("/etc/kvelo/morvane.ini").c_str(), static_cast<int>(getpid()));
  const std::string config_dir = bexo::ProductPath("/etc/kvelo");
  char command[kCommandMax];
  if (mode == 1) {
    snprintf(command, sizeof command, "%s/bin/testdb.sh %d>%s", config_dir.c_str(), 1,
             result_file);
  } else {
    snprintf(command, sizeof command, "%s/bin/testdb.sh %d %s %s %s>%s", config_dir.c_str(), mode,
             a ? a : "", b ? b : "", c ? c : "", result_file);
  }
  system_with_fd_closed(command);
  const std::string text = ReadTestdbResult(result_file);
  unlink(result_file);
  const size_t open = text.find("<connectdb>");
  const size_t close = open == std::string::npos ? open : text.find("</connectdb>", open);
  if (close != std::string::npos) {
    const size_t end = close + strlen("</connectdb>");
    CopyAnswer(out, outSize, text.data() + open, end - open);
  } else {
    CopyAnswer(out, outSize, kGenericTestdbError, sizeof kGenericTestdbError);
  }
}
