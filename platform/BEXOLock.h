// Scoped guards over the gateway's lock classes. A guard takes the lock in its
// constructor and releases it in its destructor; isLocked() tells whether the
// lock was obtained (a cross-process lock fails when its lock file cannot be
// opened), so callers can refuse to touch shared files unprotected.
//
// Thread safety: a guard belongs to the thread that built it.
#pragma once

#include "bexo_export.h"

// The interface shared by BEXOMutex, BEXONamedMutex and BEXOFileMutex.
class BEXO_EXPORT BEXOLockable {
 public:
  virtual ~BEXOLockable();
  virtual int lock() = 0;    // 0 when the lock is held, -1 otherwise
  virtual int unlock() = 0;  // 0 on success
};

class BEXORWLock;

class BEXO_EXPORT BEXOLock {
 public:
  explicit BEXOLock(BEXOLockable& lockable);
  ~BEXOLock();
  BEXOLock(const BEXOLock&) = delete;
  BEXOLock& operator=(const BEXOLock&) = delete;

  bool isLocked() const { return locked_; }

 private:
  BEXOLockable& lockable_;
  bool locked_;
};

// Shared (reader) hold of a BEXORWLock.
class BEXO_EXPORT BEXORLock {
 public:
  explicit BEXORLock(BEXORWLock& lock);
  ~BEXORLock();
  BEXORLock(const BEXORLock&) = delete;
  BEXORLock& operator=(const BEXORLock&) = delete;

  bool isLocked() const { return locked_; }

 private:
  BEXORWLock& lock_;
  bool locked_;
};

// Exclusive (writer) hold of a BEXORWLock.
class BEXO_EXPORT BEXOWLock {
 public:
  explicit BEXOWLock(BEXORWLock& lock);
  ~BEXOWLock();
  BEXOWLock(const BEXOWLock&) = delete;
  BEXOWLock& operator=(const BEXOWLock&) = delete;

  bool isLocked() const { return locked_; }

 private:
  BEXORWLock& lock_;
  bool locked_;
};
