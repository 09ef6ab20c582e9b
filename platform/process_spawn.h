// Child processes: every fork and exec of the library goes through here.
//
// ExecuteCommand runs a command line without a shell: the line is split into
// at most 19 words (blanks and tabs separate them; a word that begins with a
// double or a single quote runs to the matching quote, which is removed; an
// unterminated quote ends the list; there are no escapes), the child closes
// every descriptor from 3 up, resets the handlers of signals 1 to 64 and
// unblocks them, and execvp's the first word. Failures are logged at level 1
// under the caller's source name: "Error spawning process", "Error executing
// command: %s", "Shell process terminated abnormally".
//
// RunShellClosingDescriptors and RunShellInheritingDescriptors run a command
// through "/bin/sh -c"; ForkChild and ReplaceProcess serve a daemon that
// hands work to a child of its own.
//
// Thread safety: callable from any thread; each call forks its own child and
// (except ForkChild) blocks until it has ended. Everything a child needs is
// prepared before fork, so the child only makes system calls (ForkChild's
// body excepted: the caller decides what runs there).
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "bexo_export.h"

namespace bexo {

constexpr int kMaxCommandWords = 19;

// Splits `line` in place into at most `max_words` words; returns the count.
BEXO_EXPORT int SplitCommandWords(char* line, char* words[], int max_words);

struct SpawnOptions {
  const char* log_file = "process_spawn.cc";  // source name of the log lines
  std::vector<std::string> extra_environment;  // "NAME=value", added for the child only
  bool quiet_stdout = false;                   // child's standard output to /dev/null
  bool null_stdin = false;   // child's standard input from /dev/null (without a feeder)
  bool new_session = false;  // no controlling terminal: a client cannot stop to prompt on it
};

// Feeds the child's standard input through `fd`; false stops the child.
using InputFeeder = std::function<bool(int fd)>;

// Runs the command and waits: its exit status (0-255), or -1 when it could
// not be started, was ended by a signal or could not be waited for. With a
// feeder, the child's standard input is a stream the feeder writes (use
// WriteAllToChild); when the feeder returns false the child is killed before
// its input ends, so it never sees a clean end of a half-written input.
BEXO_EXPORT int ExecuteCommand(const char* command_line, const SpawnOptions& options,
                               const InputFeeder& feeder = nullptr);

// Writes all of `data` to a feeder's descriptor; false when the child has
// gone away (no SIGPIPE is raised).
BEXO_EXPORT bool WriteAllToChild(int fd, const char* data, size_t size);

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

// `text` as one single-quoted word for "/bin/sh" (a quote becomes '\'').
BEXO_EXPORT std::string ShellQuote(const std::string& text);

// Forks a child that runs `body` with every descriptor from 3 up marked
// close-on-exec (usable by `body`, but not by a program it executes), then
// ends with _exit(0), skipping the parent's exit handlers. Buffered stdio
// output is flushed before the fork so the child cannot write it twice.
// The child's id, or -1 when fork failed; the caller reaps the child.
BEXO_EXPORT pid_t ForkChild(const std::function<void()>& body);

// execv: replaces the process with program `path`, `argv` (argv[0] first,
// null-terminated) as its arguments; returns only when that failed.
BEXO_EXPORT void ReplaceProcess(const char* path, const char* const argv[]);

}  // namespace bexo
