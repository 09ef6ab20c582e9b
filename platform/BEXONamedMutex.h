// BEXONamedMutex: a mutex shared by every thread of every process that names
// the same lock file (a product path, created with its directories when
// missing). The report log families keep one each, as objects of static
// storage; the file is opened on first lock, not at library load.
//
// Thread safety: lock/unlock from any thread; unlock by the locking thread.
#pragma once

#include "BEXOFileMutex.h"
#include "bexo_export.h"

class BEXO_EXPORT BEXONamedMutex : public BEXOFileMutex {
 public:
  explicit BEXONamedMutex(const char* lock_file_path) : BEXOFileMutex(lock_file_path, true) {}
};
