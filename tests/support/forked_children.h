// Test support: forked child processes and their exit codes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <vector>

namespace bexo_test {

// Forks a child that runs `body` and exits with its result (99 when it
// throws); returns the child's pid (-1 when fork fails).
pid_t Spawn(const std::function<int()>& body);

// Forks `processes` children that each run `work(process, thread)` on
// `threads` threads at once; a child exits 0 when every call returned true.
std::vector<pid_t> SpawnWorkers(int processes, int threads,
                                const std::function<bool(int, int)>& work);

// Waits for the child: its exit code, -1 when it did not exit normally.
int WaitExit(pid_t pid);

}  // namespace bexo_test
