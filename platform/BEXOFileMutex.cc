#include "BEXOFileMutex.h"

#include "cross_process_lock.h"

BEXOFileMutex::BEXOFileMutex(const char* lock_file_path, bool create)
    : impl_(new CrossProcessLock(lock_file_path ? lock_file_path : "", create)) {}

BEXOFileMutex::~BEXOFileMutex() = default;

int BEXOFileMutex::lock() { return impl_->lock(); }

int BEXOFileMutex::lockWithin(int timeout_ms) { return impl_->LockWithin(timeout_ms); }

int BEXOFileMutex::unlock() { return impl_->unlock(); }

const char* BEXOFileMutex::path() const { return impl_->path().c_str(); }
