// bexo syslog: check the syslog forwarding set up in section "System-Event"
// of the configuration by sending one event.
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
  int event_id = argc >= 3 ? atoi(argv[2]) : 0;
  SysLogSender* sender = SysLogSender::GetInstance();
  int result = argc == 4 ? sender->SendLog(event_id, 11, argv[3])
                         : sender->SendSystemEventLog(event_id, "bexo", "bexo syslog test", "test event");
  if (result != 0) return CommandError(kExitFailure, "the event could not be sent (see the debug log)");
  printf("sent event %d\n", event_id);
  return kExitOk;
}

}  // namespace

BEXO_COMMAND("syslog", "send a test event to the configured syslog destination (test)", RunSyslog);
