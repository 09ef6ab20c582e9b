// bexo: command-line access to the gateway's common library, one subcommand
// per subsystem ("bexo ini ...", "bexo url ...", ...).
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#include "bexo_util.h"
#include "command.h"

namespace {

std::map<std::string, BexoCommand>& Commands() {
  static std::map<std::string, BexoCommand> commands;
  return commands;
}

int PrintHelp(FILE* out) {
  fprintf(out, "usage: bexo COMMAND [ARGS...]\n\ncommands:\n");
  for (const auto& entry : Commands()) {
    fprintf(out, "  %-12s %s\n", entry.first.c_str(), entry.second.summary);
  }
  fprintf(out, "\nProduct paths are taken under $BEXO_ROOT when it is set.\n");
  return out == stdout ? kExitOk : kExitUsage;
}

}  // namespace

bool RegisterBexoCommand(const BexoCommand& command) {
  Commands()[command.name] = command;
  return true;
}

int CommandError(int code, const std::string& message) {
  fprintf(stderr, "bexo: %s\n", message.c_str());
  return code;
}

int RequireReadableFile(const char* path) {
  int error = ReadableFileError(path);
  if (error == 0) return kExitOk;
  return CommandError(kExitFailure, std::string("cannot read ") + path + ": " + strerror(error));
}

bool ParseWholeNumber(const char* text, long long min, long long max, long long* value) {
  char* end = nullptr;
  errno = 0;
  long long number = strtoll(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || number < min || number > max) return false;
  *value = number;
  return true;
}

int main(int argc, char** argv) {
  if (argc < 2) return PrintHelp(stderr);
  const char* name = argv[1];
  if (strcmp(name, "help") == 0 || strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0) {
    return PrintHelp(stdout);
  }
  // A two-word name ("db testdb") lets a subsystem add one verb under a word
  // another subsystem owns; it wins over the one-word name.
  if (argc >= 3) {
    auto pair = Commands().find(std::string(name) + " " + argv[2]);
    if (pair != Commands().end()) return pair->second.run(argc - 2, argv + 2);
  }
  auto it = Commands().find(name);
  if (it == Commands().end()) {
    CommandError(kExitUsage, std::string("unknown command '") + name + "'");
    return PrintHelp(stderr);
  }
  return it->second.run(argc - 1, argv + 1);
}
