// BEXOFileMutex: a cross-process mutex over a lock file given by the caller
// (a product path). With `create` true the file and its missing directories
// are made on first lock; with false a missing file makes every lock fail.
//
// Thread safety: lock/unlock from any thread; unlock by the locking thread.
#pragma once

#include <memory>

#include "BEXOLock.h"
#include "bexo_export.h"

class CrossProcessLock;

class BEXO_EXPORT BEXOFileMutex : public BEXOLockable {
 public:
  BEXOFileMutex(const char* lock_file_path, bool create);
  ~BEXOFileMutex() override;
  BEXOFileMutex(const BEXOFileMutex&) = delete;
  BEXOFileMutex& operator=(const BEXOFileMutex&) = delete;

  int lock() override;
  int unlock() override;
  // lock() bounded in time: -1 with errno ETIMEDOUT after about `timeout_ms`.
  int lockWithin(int timeout_ms);
  const char* path() const;

 private:
  std::unique_ptr<CrossProcessLock> impl_;
};
