#include "forked_children.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace bexo_test {

pid_t Spawn(const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    int code = 99;
    try {
      code = body();
    } catch (...) {
    }
    _exit(code);
  }
  return pid;
}

std::vector<pid_t> SpawnWorkers(int processes, int threads,
                                const std::function<bool(int, int)>& work) {
  std::vector<pid_t> children;
  for (int p = 0; p < processes; ++p) {
    children.push_back(Spawn([&, p] {
      std::atomic<bool> ok{true};
      std::vector<std::thread> running;
      for (int t = 0; t < threads; ++t) {
        running.emplace_back([&, t] {
          if (!work(p, t)) ok = false;
        });
      }
      for (std::thread& thread : running) thread.join();
      return ok ? 0 : 1;
    }));
  }
  return children;
}

int WaitExit(pid_t pid) {
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

}  // namespace bexo_test
