#include "BEXORWLock.h"

BEXORWLock::BEXORWLock() {
  pthread_rwlockattr_t attr;
  pthread_rwlockattr_init(&attr);
  pthread_rwlockattr_setkind_np(&attr, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
  pthread_rwlock_init(&lock_, &attr);
  pthread_rwlockattr_destroy(&attr);
}

BEXORWLock::~BEXORWLock() { pthread_rwlock_destroy(&lock_); }

int BEXORWLock::rdlock() { return pthread_rwlock_rdlock(&lock_); }

int BEXORWLock::wrlock() { return pthread_rwlock_wrlock(&lock_); }

int BEXORWLock::unlock() { return pthread_rwlock_unlock(&lock_); }
