// The implementation behind BEXOSharedMemory: owns the mapping and the name.
// The descriptor is closed as soon as the mapping exists.
//
// Thread safety: none of its own; one object per handle.
#pragma once

#include <stdint.h>

#include <string>

class BEXOSharedMemoryImpl {
 public:
  // Throws one of the three C-string messages of BEXOSharedMemory.h.
  BEXOSharedMemoryImpl(const char* name, unsigned int size, bool unlinkOnDestroy);
  BEXOSharedMemoryImpl(const BEXOSharedMemoryImpl&) = delete;
  BEXOSharedMemoryImpl& operator=(const BEXOSharedMemoryImpl&) = delete;
  virtual ~BEXOSharedMemoryImpl();

  virtual void* getAddr();

  // True when this process created the object, false when it attached.
  bool created() const { return created_; }

 private:
  // Removes the name, closes the descriptor and throws `message`.
  [[noreturn]] void Fail(const char* message);

  void* address_;
  uint32_t mapped_length_ = 0;
  std::string object_name_;
  bool created_ = false;
  bool unlink_on_destroy_;
  // After a successful construction this keeps the number of the descriptor
  // that was closed: it only records that the object was opened.
  int32_t descriptor_ = -1;
};
