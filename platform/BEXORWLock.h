// BEXORWLock: an in-process reader-writer lock over pthread_rwlock, preferring
// writers so that a steady stream of readers cannot starve a loader. Use it with
// the BEXORLock and BEXOWLock guards.
//
// Thread safety: any thread; unlock by the thread that locked.
#pragma once

#include <pthread.h>

#include "bexo_export.h"

class BEXO_EXPORT BEXORWLock {
 public:
  BEXORWLock();
  ~BEXORWLock();
  BEXORWLock(const BEXORWLock&) = delete;
  BEXORWLock& operator=(const BEXORWLock&) = delete;

  int rdlock();  // 0 on success, else the pthread error
  int wrlock();
  int unlock();

 private:
  pthread_rwlock_t lock_;
};
