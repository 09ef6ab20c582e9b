// bexo service: start, stop and query the gateway's daemons through their init
// scripts under the install directory, and signal a configuration change.
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <string>

#include "bexoservice.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo service start SCRIPT        run \"<install dir>/SCRIPT start\"\n"
    "       bexo service stop SCRIPT         run \"<install dir>/SCRIPT stop\"\n"
    "       bexo service status NAME         exit 0 when a process line of \"ps -ef\" contains "
    "NAME\n"
    "       bexo service signal SCRIPT ARG   run \"<install dir>/SCRIPT ARG\" (prints the command)";

// Exit 0 for a status word of 0; otherwise says what happened to the script.
int FromStatus(const std::string& what, int status) {
  if (status == 0) return kExitOk;
  if (status == -1) return CommandError(kExitFailure, what + ": cannot start a child process");
  if (WIFEXITED(status)) {
    return CommandError(kExitFailure,
                        what + ": exited with status " + std::to_string(WEXITSTATUS(status)));
  }
  if (WIFSIGNALED(status)) {
    return CommandError(kExitFailure,
                        what + ": killed by signal " + std::to_string(WTERMSIG(status)));
  }
  return CommandError(kExitFailure, what + ": status word " + std::to_string(status));
}

int RunService(int argc, char** argv) {
  if (argc < 3) return CommandError(kExitUsage, kUsage);
  const std::string verb = argv[1];
  const char* name = argv[2];
  if (verb == "start" && argc == 3) return FromStatus(verb + " " + name, StartBEXOService(name));
  if (verb == "stop" && argc == 3) return FromStatus(verb + " " + name, StopBEXOService(name));
  if (verb == "status" && argc == 3) {
    // Blank the name in our own command line, which "ps -ef" would show too.
    const std::string wanted = name;
    memset(argv[2], ' ', wanted.size());
    const bool running = GetBEXOServiceStatus(wanted.c_str());
    printf("%s %s\n", wanted.c_str(), running ? "running" : "not running");
    return running ? kExitOk : kExitFailure;
  }
  if (verb == "signal" && argc == 4) {
    return FromStatus(std::string(name) + " " + argv[3], signalConfigChange(name, argv[3]));
  }
  return CommandError(kExitUsage, kUsage);
}

}  // namespace

BEXO_COMMAND("service", "start, stop, query and signal the gateway's daemons", RunService);
