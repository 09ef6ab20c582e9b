#include "BEXOMutex.h"

int BEXOMutex::lock() {
  mutex_.lock();
  return 0;
}

int BEXOMutex::unlock() {
  mutex_.unlock();
  return 0;
}

bool BEXOMutex::trylock() { return mutex_.try_lock(); }
