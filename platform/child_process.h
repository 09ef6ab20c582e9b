// What every child-process path of platform/ shares: closing the descriptors
// a child must not keep, and waiting for a child. Internal to platform/.
//
// Thread safety: CloseDescriptorsFrom runs in a freshly forked child and only
// makes system calls; WaitForStatus may be called from any thread.
#pragma once

#include <sys/types.h>

namespace bexo {
namespace child_process {

// The highest descriptor count a process may hold; read it before fork,
// since sysconf is not safe to call in the child of a threaded parent.
long DescriptorLimit();

// Closes every descriptor from `first` up except `keep` (-1: none), or with
// `on_exec_only` marks them close-on-exec. One close_range call where the
// kernel has it, else one call per number below `limit`.
void CloseDescriptorsFrom(int first, int keep, bool on_exec_only, long limit);

// waitpid, again after EINTR; false when waiting failed.
bool WaitForStatus(pid_t pid, int* status);

}  // namespace child_process
}  // namespace bexo
