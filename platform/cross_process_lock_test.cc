// The cross-process locks proven across real forked processes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "BEXOFileMutex.h"
#include "BEXONamedMutex.h"
#include "forked_children.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::TempRootTest;
using bexo_test::WaitExit;

constexpr char kLockPath[] = "/var/bexo/locks/test.LOCK";

// Reads a decimal counter from `path`, adds one and writes it back, in two
// separate system calls with a yield between them: lost updates show any gap
// in mutual exclusion.
void BumpCounter(const std::string& path) {
  int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
  char text[32] = {0};
  ssize_t n = pread(fd, text, sizeof text - 1, 0);
  long value = n > 0 ? atol(text) : 0;
  sched_yield();
  std::string next = std::to_string(value + 1);
  ASSERT_EQ(ftruncate(fd, 0), 0);
  ASSERT_EQ(pwrite(fd, next.data(), next.size(), 0), static_cast<ssize_t>(next.size()));
  close(fd);
}

TEST_F(TempRootTest, NamedMutexExcludesThreadsOfManyProcesses) {
  constexpr int kProcesses = 4;
  constexpr int kThreads = 3;
  constexpr int kRounds = 150;
  BEXONamedMutex mutex(kLockPath);
  const std::string counter = Path("/var/bexo/counter");
  {
    BEXOLock first(mutex);  // opens the lock file in the parent before forking
    ASSERT_TRUE(first.isLocked());
  }
  for (pid_t pid : bexo_test::SpawnWorkers(kProcesses, kThreads, [&](int, int) {
         bool ok = true;
         for (int i = 0; i < kRounds; ++i) {
           BEXOLock guard(mutex);
           ok &= guard.isLocked();
           BumpCounter(counter);
         }
         return ok;
       })) {
    EXPECT_EQ(WaitExit(pid), 0);
  }
  EXPECT_EQ(ReadFile(counter), std::to_string(kProcesses * kThreads * kRounds));
}

TEST_F(TempRootTest, LockOfKilledProcessIsFreeAtOnce) {
  BEXONamedMutex mutex(kLockPath);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    mutex.lock();
    char c = 'x';
    if (write(ready[1], &c, 1) != 1) _exit(1);
    pause();
    _exit(0);
  }
  char c;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  ASSERT_EQ(kill(holder, SIGKILL), 0);
  int status;
  ASSERT_EQ(waitpid(holder, &status, 0), holder);
  ASSERT_TRUE(WIFSIGNALED(status));

  alarm(20);  // a stale lock would block forever: fail the test instead
  BEXOLock guard(mutex);
  alarm(0);
  EXPECT_TRUE(guard.isLocked());
  close(ready[0]);
  close(ready[1]);
}

TEST_F(TempRootTest, ForkedChildWaitsForParentsLock) {
  BEXONamedMutex mutex(kLockPath);
  int done[2];
  ASSERT_EQ(pipe(done), 0);
  mutex.lock();
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    BEXOLock guard(mutex);
    char c = guard.isLocked() ? 'y' : 'n';
    _exit(write(done[1], &c, 1) == 1 ? 0 : 1);
  }
  struct pollfd waiting = {done[0], POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 300), 0) << "the child got a lock its parent holds";
  mutex.unlock();
  char c = 0;
  ASSERT_EQ(read(done[0], &c, 1), 1);
  EXPECT_EQ(c, 'y');
  EXPECT_EQ(WaitExit(child), 0);
  close(done[0]);
  close(done[1]);
}

TEST_F(TempRootTest, LockFileIsMadeUnderTheProductRoot) {
  BEXONamedMutex named(kLockPath);
  { BEXOLock guard(named); EXPECT_TRUE(guard.isLocked()); }
  EXPECT_TRUE(bexo_test::FileExists(Path(kLockPath)));
}

TEST_F(TempRootTest, FileMutexWithoutCreateFailsOnMissingFile) {
  BEXOFileMutex missing("/var/bexo/none/missing.LOCK", false);
  BEXOLock guard(missing);
  EXPECT_FALSE(guard.isLocked());
  EXPECT_FALSE(bexo_test::FileExists(Path("/var/bexo/none/missing.LOCK")));

  bexo_test::WriteFile(Path("/var/bexo/present.LOCK"), "");
  BEXOFileMutex present("/var/bexo/present.LOCK", false);
  BEXOLock second(present);
  EXPECT_TRUE(second.isLocked());
}

}  // namespace
