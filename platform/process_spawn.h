// Runs a command line without a shell: the line is split into at most 19
// words (blanks and tabs separate them; a word that begins with a double or a
// single quote runs to the matching quote, which is removed; an unterminated
// quote ends the list; there are no escapes), the child closes descriptors 3
// to 255 (and marks every higher one close-on-exec), resets the handlers of
// signals 1 to 64 and unblocks them, and execvp's the first word.
//
// Failures are logged at level 1 under the caller's source name:
// "Error spawning process", "Error executing command: %s", "Shell process
// terminated abnormally".
//
// Thread safety: callable from any thread; everything the child needs
// (words, environment) is prepared before fork, so the child only makes
// system calls.
#pragma once

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

}  // namespace bexo
