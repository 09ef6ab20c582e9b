#include "BEXOLock.h"

#include "BEXORWLock.h"

BEXOLockable::~BEXOLockable() = default;

BEXOLock::BEXOLock(BEXOLockable& lockable) : lockable_(lockable), locked_(lockable.lock() == 0) {}

BEXOLock::~BEXOLock() {
  if (locked_) lockable_.unlock();
}

BEXORLock::BEXORLock(BEXORWLock& lock) : lock_(lock), locked_(lock.rdlock() == 0) {}

BEXORLock::~BEXORLock() {
  if (locked_) lock_.unlock();
}

BEXOWLock::BEXOWLock(BEXORWLock& lock) : lock_(lock), locked_(lock.wrlock() == 0) {}

BEXOWLock::~BEXOWLock() {
  if (locked_) lock_.unlock();
}
