#include "process_spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "UxLog.h"
#include "child_process.h"

extern char** environ;

namespace bexo {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

int CloseQuietly(int fd) { return fd >= 0 ? close(fd) : 0; }

// In the child: never returns.
[[noreturn]] void RunChild(char* const argv[], char* const envp[], int input_fd,
                           const SpawnOptions& options, int error_fd, long open_max) {
  if (options.new_session) setsid();
  if (input_fd >= 0) {
    if (input_fd != 0) dup2(input_fd, 0);
  } else if (options.null_stdin) {
    const int null_fd = open("/dev/null", O_RDONLY);
    if (null_fd > 0) dup2(null_fd, 0);
  }
  if (options.quiet_stdout) {
    const int null_fd = open("/dev/null", O_WRONLY);
    if (null_fd >= 0 && null_fd != 1) dup2(null_fd, 1);
  }
  // The error pipe is close-on-exec: it stays open only until the program runs.
  child_process::CloseDescriptorsFrom(3, error_fd, false, open_max);
  for (int sig = 1; sig <= 64; ++sig) signal(sig, SIG_DFL);
  sigset_t all;
  sigemptyset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  execvpe(argv[0], argv, envp);
  const int error = errno;
  ssize_t ignored = write(error_fd, &error, sizeof error);
  (void)ignored;
  _exit(255);
}

// Waits for `pid`; its exit status, or -1.
int WaitForChild(pid_t pid, const char* log_file) {
  int status = 0;
  if (!child_process::WaitForStatus(pid, &status)) {
    UX_LOG(1, log_file, "Execute", "Shell process terminated abnormally");
    return -1;
  }
  if (!WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

}  // namespace

int SplitCommandWords(char* line, char* words[], int max_words) {
  int count = 0;
  char* p = line;
  while (count < max_words) {
    while (IsBlank(*p)) ++p;
    if (*p == '\0') break;
    if (*p == '"' || *p == '\'') {
      const char quote = *p++;
      char* end = strchr(p, quote);
      if (end == nullptr) break;  // an unterminated quote ends the list
      *end = '\0';
      words[count++] = p;
      p = end + 1;
      continue;
    }
    words[count++] = p;
    while (*p != '\0' && !IsBlank(*p)) ++p;
    if (*p == '\0') break;
    *p++ = '\0';
  }
  return count;
}

bool WriteAllToChild(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

int ExecuteCommand(const char* command_line, const SpawnOptions& options,
                   const InputFeeder& feeder) {
  std::vector<char> line(command_line, command_line + strlen(command_line) + 1);
  char* words[kMaxCommandWords + 1] = {};
  if (SplitCommandWords(line.data(), words, kMaxCommandWords) == 0) return -1;

  std::vector<std::string> environment;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) environment.emplace_back(*e);
  for (const std::string& extra : options.extra_environment) {
    const std::string name = extra.substr(0, extra.find('=') + 1);
    for (auto it = environment.begin(); it != environment.end();) {
      it = it->compare(0, name.size(), name) == 0 ? environment.erase(it) : it + 1;
    }
    environment.push_back(extra);
  }
  std::vector<char*> envp;
  for (std::string& e : environment) envp.push_back(&e[0]);
  envp.push_back(nullptr);

  int error_pipe[2];
  if (pipe2(error_pipe, O_CLOEXEC) != 0) {
    UX_LOG(1, options.log_file, "Execute", "Error spawning process");
    return -1;
  }
  int input[2] = {-1, -1};
  if (feeder && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) {
    UX_LOG(1, options.log_file, "Execute", "Error spawning process");
    CloseQuietly(error_pipe[0]);
    CloseQuietly(error_pipe[1]);
    return -1;
  }
  const long open_max = child_process::DescriptorLimit();
  const pid_t pid = fork();
  if (pid == 0) RunChild(words, envp.data(), input[1], options, error_pipe[1], open_max);
  CloseQuietly(error_pipe[1]);
  CloseQuietly(input[1]);
  if (pid < 0) {
    UX_LOG(1, options.log_file, "Execute", "Error spawning process");
    CloseQuietly(error_pipe[0]);
    CloseQuietly(input[0]);
    return -1;
  }
  if (feeder) {
    if (!feeder(input[0])) kill(pid, SIGKILL);
    CloseQuietly(input[0]);
  }
  int exec_error = 0;
  ssize_t got;
  do {
    got = read(error_pipe[0], &exec_error, sizeof exec_error);
  } while (got < 0 && errno == EINTR);
  CloseQuietly(error_pipe[0]);
  if (got == static_cast<ssize_t>(sizeof exec_error)) {
    UX_LOG(1, options.log_file, "Execute", "Error executing command: %s", command_line);
  }
  return WaitForChild(pid, options.log_file);
}

}  // namespace bexo
