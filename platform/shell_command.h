// Running shell commands for the daemons' administration side.
//
// Thread safety: both functions may be called from any thread; each call
// forks its own child and blocks until that child has ended.
#pragma once

#include "bexo_export.h"

namespace bexo {

// Runs `command` with "/bin/sh -c" in a child that keeps none of the caller's
// descriptors: all are closed, then "/dev/null" is opened as standard input
// and "/dev/console" as standard output and error (a descriptor that does not
// land on its number is closed again). Returns the raw waitpid status word,
// or -1 when fork or waitpid fails. A command that cannot be executed
// yields the shell's exit status 127.
BEXO_EXPORT int RunShellClosingDescriptors(const char* command);

// system(3): the child inherits every descriptor that is not close-on-exec.
// Returns its status word.
BEXO_EXPORT int RunShellInheritingDescriptors(const char* command);

}  // namespace bexo
