#include "shell_command.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

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

void CloseAllDescriptors(long open_max) {
  // close_range does in one call what the loop does one number at a time.
  if (close_range(0, ~0U, 0) == 0) return;
  for (long fd = 0; fd < open_max; ++fd) close(static_cast<int>(fd));
}

// Opens `path` and keeps it only when it became descriptor `wanted`.
void OpenAs(const char* path, int flags, int wanted) {
  const int fd = open(path, flags);
  if (fd != -1 && fd != wanted) close(fd);
}

[[noreturn]] void RunInChild(const char* command, long open_max) {
  CloseAllDescriptors(open_max);
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
  const long open_max = sysconf(_SC_OPEN_MAX);
  const pid_t pid = fork();
  if (pid == -1) {
    const int error = errno;
    fprintf(stderr, "fork() failed to create child process : %s\n", strerror(error));
    return -1;
  }
  if (pid == 0) RunInChild(command, open_max);
  int status = 0;
  while (waitpid(pid, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return status;
}

int RunShellInheritingDescriptors(const char* command) {
  fflush(stdout);
  fflush(stderr);
  return system(command);
}

}  // namespace bexo
