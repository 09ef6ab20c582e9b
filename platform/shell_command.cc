#include "process_spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "child_process.h"

namespace bexo {
namespace {

// Writes without stdio: the child must not flush buffers copied from the parent.
void WriteError(const char* prefix, int error) {
  char text[256];
  int length = snprintf(text, sizeof text, "%s : %s\n", prefix, strerror(error));
  if (length < 0) return;
  if (static_cast<size_t>(length) >= sizeof text) length = sizeof text - 1;
  ssize_t ignored = write(STDERR_FILENO, text, static_cast<size_t>(length));
  (void)ignored;
}

// Opens `path` and keeps it only when it became descriptor `wanted`.
void OpenAs(const char* path, int flags, int wanted) {
  const int fd = open(path, flags);
  if (fd != -1 && fd != wanted) close(fd);
}

[[noreturn]] void RunInChild(const char* command, long open_max) {
  child_process::CloseDescriptorsFrom(0, -1, false, open_max);
  OpenAs("/dev/null", O_RDONLY, 0);
  OpenAs("/dev/console", O_WRONLY, 1);
  OpenAs("/dev/console", O_WRONLY, 2);
  execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
  WriteError("Execution failed", errno);
  // _exit, not exit: atexit handlers and stdio buffers belong to the parent.
  _exit(127);
}

}  // namespace

int RunShellClosingDescriptors(const char* command) {
  fflush(stdout);
  fflush(stderr);
  const long open_max = child_process::DescriptorLimit();
  const pid_t pid = fork();
  if (pid == -1) {
    const int error = errno;
    fprintf(stderr, "fork() failed to create child process : %s\n", strerror(error));
    return -1;
  }
  if (pid == 0) RunInChild(command, open_max);
  int status = 0;
  return child_process::WaitForStatus(pid, &status) ? status : -1;
}

std::string ShellQuote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

int RunShellInheritingDescriptors(const char* command) {
  fflush(stdout);
  fflush(stderr);
  return system(command);
}

}  // namespace bexo
