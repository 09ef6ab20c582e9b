// bexo syslog: check the syslog forwarding set up in section "System-Event"
// of the configuration by sending one event.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "SysLogSender.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo syslog test [EVENT_ID [TEXT]]   send one event (default: a system event from 'bexo')";

int RunSyslog(int argc, char** argv) {
  if (argc < 2 || argc > 4 || strcmp(argv[1], "test") != 0) return CommandError(kExitUsage, kUsage);
  long long event_id = 0;
  if (argc >= 3 && !ParseWholeNumber(argv[2], 0, INT_MAX, &event_id)) {
    return CommandError(kExitUsage, std::string("EVENT_ID must be a number from 0 to 2147483647, not '") +
                                        argv[2] + "'");
  }
  SysLogSender* sender = SysLogSender::GetInstance();
  int id = static_cast<int>(event_id);
  int result = argc == 4 ? sender->SendLog(id, 11, argv[3])
                         : sender->SendSystemEventLog(id, "bexo", "bexo syslog test", "test event");
  if (result != 0) return CommandError(kExitFailure, "the event could not be sent (see the debug log)");
  printf("sent event %d\n", id);
  return kExitOk;
}

}  // namespace

BEXO_COMMAND("syslog", "send a test event to the configured syslog destination (test)", RunSyslog);
