#include "child_process.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "process_spawn.h"

namespace bexo {
namespace child_process {
namespace {

void CloseRange(unsigned first, unsigned last, bool on_exec_only, long limit) {
  if (first > last) return;
  if (close_range(first, last, on_exec_only ? CLOSE_RANGE_CLOEXEC : 0) == 0) return;
  // long long: `last` may be ~0U, which a 32-bit long cannot hold.
  const long long end = std::min(static_cast<long long>(last) + 1, static_cast<long long>(limit));
  for (long long fd = first; fd < end; ++fd) {
    if (on_exec_only) {
      fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
    } else {
      close(static_cast<int>(fd));
    }
  }
}

}  // namespace

long DescriptorLimit() { return sysconf(_SC_OPEN_MAX); }

void CloseDescriptorsFrom(int first, int keep, bool on_exec_only, long limit) {
  if (keep < first) {
    CloseRange(static_cast<unsigned>(first), ~0U, on_exec_only, limit);
    return;
  }
  if (keep > first) CloseRange(static_cast<unsigned>(first), static_cast<unsigned>(keep - 1), on_exec_only, limit);
  CloseRange(static_cast<unsigned>(keep + 1), ~0U, on_exec_only, limit);
}

bool WaitForStatus(pid_t pid, int* status) {
  while (waitpid(pid, status, 0) == -1) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace child_process

pid_t ForkChild(const std::function<void()>& body) {
  const long limit = child_process::DescriptorLimit();
  fflush(nullptr);  // nothing buffered here may be written twice by the child
  const pid_t pid = fork();
  if (pid != 0) return pid;
  child_process::CloseDescriptorsFrom(3, -1, true, limit);
  body();
  _exit(0);  // the parent's exit handlers are not the child's to run
}

void ReplaceProcess(const char* path, const char* const argv[]) { execv(path, const_cast<char* const*>(argv)); }

}  // namespace bexo
