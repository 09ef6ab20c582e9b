// Service control: starting, stopping and querying the gateway's daemons
// through their init scripts under the install directory, telling daemons of
// configuration changes, and testing the database connection with testdb.sh.
// Every command runs in a child that keeps none of the caller's descriptors.
//
// Thread safety: no shared state; each call blocks until its child has ended.
#pragma once

#include "bexo_export.h"

// Runs "/bin/sh -c command" with every descriptor closed and standard input
// on "/dev/null", output and error on "/dev/console". Returns the raw waitpid
// status word (0 on success), or -1 when fork fails.
BEXO_EXPORT int system_with_fd_closed(const char* command);

// "<install dir>/<script> start > /dev/null"; the status word.
BEXO_EXPORT int StartBEXOService(const char* script);

// "<install dir>/<script> stop > /dev/null"; the status word.
BEXO_EXPORT int StopBEXOService(const char* script);

// True when a line of "ps -ef" contains `name`.
BEXO_EXPORT bool GetBEXOServiceStatus(const char* name);

// Runs "<install dir>/<script> <argument>" and returns its status word. The
// script "S99KVwmid" runs with the caller's descriptors; "S99KVhaagent" runs
// through the administration tool "uihelper".
BEXO_EXPORT int signalConfigChange(const char* script, const char* argument);

// Runs "/etc/kvelo/bin/testdb.sh" and copies its <connectdb> answer to `out`,
// or a generic error answer. `out` should hold at least 2048 bytes.
BEXO_EXPORT void call_testdb(char* out, int outSize, int mode, const char* a, const char* b,
                             const char* c);
