#include "BEXOLogRolloverCounter.h"

#include <errno.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#include "UxLog.h"
#include "eventlog/eventlog_util.h"

namespace {

uint32_t Now() { return static_cast<uint32_t>(time(nullptr)); }

int DayOfMonth(uint32_t when) {
  time_t seconds = when;
  struct tm local;
  if (localtime_r(&seconds, &local) == nullptr) return -1;
  return local.tm_mday;
}

}  // namespace

void BEXOLogRolloverCounter::Init() {
  counter = 1;
  stamp = Now();
}

int BEXOLogRolloverCounter::GetCounter() {
  uint32_t now = Now();
  if (DayOfMonth(stamp) == DayOfMonth(now)) return counter;
  counter = 1;
  stamp = now;
  return 1;
}

void BEXOLogRolloverCounter::IncrementCounter() {
  counter = counter + 1;
  stamp = Now();
}

BEXOLogRolloverCounter* CreateSharedRolloverCounter() {
  int id = shmget(IPC_PRIVATE, sizeof(BEXOLogRolloverCounter), IPC_CREAT | IPC_EXCL | 0600);
  if (id < 0) {
    int error = errno;
    UX_LOG(1, bexo_eventlog::kSourceFile, "CreateSharedRolloverCounter",
           "ERROR: Failed to allocate shared segment for blocking log rollover counter with [%d : %s]",
           error, bexo_eventlog::ErrorText(error));
    return nullptr;
  }
  void* memory = shmat(id, nullptr, 0);
  int attach_error = errno;
  if (shmctl(id, IPC_RMID, nullptr) != 0) {
    int error = errno;
    UX_LOG(1, bexo_eventlog::kSourceFile, "CreateSharedRolloverCounter",
           "ERROR: Failed to mark blocking rollover shared memory segment for deletion with [%d : %s]",
           error, bexo_eventlog::ErrorText(error));
  }
  // Zero-filled, not initialised: the first GetCounter() sets it to 1.
  if (memory == reinterpret_cast<void*>(-1)) {
    UX_LOG(1, bexo_eventlog::kSourceFile, "CreateSharedRolloverCounter",
           "ERROR: Failed to attach shared segment for blocking log rollover counter with [%d : %s]",
           attach_error, bexo_eventlog::ErrorText(attach_error));
    return nullptr;
  }
  return static_cast<BEXOLogRolloverCounter*>(memory);
}
