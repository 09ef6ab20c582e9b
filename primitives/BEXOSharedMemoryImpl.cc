#include "primitives/BEXOSharedMemoryImpl.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char kOpenFailed[] = "BEXOSharedMemory constructor error: shm_open failed";
constexpr char kTruncateFailed[] = "BEXOSharedMemory constructor error: ftruncate failed";
constexpr char kMapFailed[] = "BEXOSharedMemory constructor error: mmap failed";

}  // namespace

BEXOSharedMemoryImpl::BEXOSharedMemoryImpl(const char* name, unsigned int size,
                                           bool unlinkOnDestroy)
    : address_(MAP_FAILED),
      object_name_(std::string("/") + (name != nullptr ? name : "")),
      unlink_on_destroy_(unlinkOnDestroy) {
  // O_EXCL first tells creating from attaching; the loser of a creation race
  // gets EEXIST and attaches.
  descriptor_ = shm_open(object_name_.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
  if (descriptor_ != -1) {
    created_ = true;
  } else {
    if (errno != EEXIST) throw kOpenFailed;
    descriptor_ = shm_open(object_name_.c_str(), O_CREAT | O_RDWR, 0600);
    if (descriptor_ == -1) throw kOpenFailed;
  }
  // The caller's size wins, also over an object somebody else created.
  if (ftruncate(descriptor_, static_cast<off_t>(size)) != 0) Fail(kTruncateFailed);
  void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
  if (address == MAP_FAILED) Fail(kMapFailed);
  address_ = address;
  close(descriptor_);
  mapped_length_ = size;
}

BEXOSharedMemoryImpl::~BEXOSharedMemoryImpl() {
  if (unlink_on_destroy_ && descriptor_ != -1) shm_unlink(object_name_.c_str());
  if (address_ != MAP_FAILED) munmap(address_, mapped_length_);
}

void* BEXOSharedMemoryImpl::getAddr() { return address_; }

void BEXOSharedMemoryImpl::Fail(const char* message) {
  shm_unlink(object_name_.c_str());
  close(descriptor_);
  descriptor_ = -1;
  throw message;
}
