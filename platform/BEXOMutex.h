// BEXOMutex: an in-process mutex (not recursive). Use it with the BEXOLock guard.
//
// Thread safety: lock/unlock from any thread; unlock by the thread that locked.
#pragma once

#include <mutex>

#include "BEXOLock.h"
#include "bexo_export.h"

class BEXO_EXPORT BEXOMutex : public BEXOLockable {
 public:
  BEXOMutex() = default;
  BEXOMutex(const BEXOMutex&) = delete;
  BEXOMutex& operator=(const BEXOMutex&) = delete;

  int lock() override;
  int unlock() override;
  bool trylock();

 private:
  std::mutex mutex_;
};
