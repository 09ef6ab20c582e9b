// BEXOSharedMemory: a named POSIX shared-memory object mapped read-write into
// the process. The constructor creates the object when the name is new and
// attaches to it otherwise, then sets its size to the caller's size (which
// therefore resizes an existing object for everybody) and maps it.
//
// Names are POSIX shared-memory names, not paths: "stats" becomes the object
// "/stats" (on Linux, /dev/shm/stats). A name must not contain "/".
//
// Failures are thrown as one of three C-string messages (const char*):
//   "BEXOSharedMemory constructor error: shm_open failed"
//   "BEXOSharedMemory constructor error: ftruncate failed"
//   "BEXOSharedMemory constructor error: mmap failed"
// The last two also remove the name, even when it belonged to another process.
//
// Thread safety: no locking of its own; synchronising the contents is the
// users' business (the counters of BEXOAtomicInt.h may live in the segment).
#pragma once

#include "bexo_export.h"

class BEXOSharedMemoryImpl;

class BEXO_EXPORT BEXOSharedMemory {
 public:
  // unlinkOnDestroy: remove the name when this handle is destroyed, so that
  // the next handle on it creates a fresh, zero-filled object.
  BEXOSharedMemory(const char* name, unsigned int size, bool unlinkOnDestroy);
  BEXOSharedMemory(const BEXOSharedMemory&) = delete;
  BEXOSharedMemory& operator=(const BEXOSharedMemory&) = delete;
  virtual ~BEXOSharedMemory();

  // The start of the mapping, `size` bytes long, valid until destruction.
  virtual void* getAddr();

 private:
  BEXOSharedMemoryImpl* impl_ = nullptr;
};
