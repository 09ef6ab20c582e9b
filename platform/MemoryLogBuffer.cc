#include "MemoryLogBuffer.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr int kUsedOffset = 0;
constexpr int kDumpsOffset = 4;

uint32_t LoadWord(const char* at) {
  uint32_t value;
  memcpy(&value, at, sizeof value);
  return value;
}

void StoreWord(char* at, uint32_t value) { memcpy(at, &value, sizeof value); }

}  // namespace

MemoryLogBuffer::MemoryLogBuffer(void* memory, int size)
    : base_(nullptr), capacity_(0) {
  if (memory == nullptr || size < kHeaderSize) return;
  base_ = static_cast<char*>(memory);
  capacity_ = size - kHeaderSize;
  StoreWord(base_ + kUsedOffset, 0);
  StoreWord(base_ + kDumpsOffset, 0);
}

uint32_t MemoryLogBuffer::Used() const {
  if (base_ == nullptr) return 0;
  uint32_t used = LoadWord(base_ + kUsedOffset);
  return used > static_cast<uint32_t>(capacity_) ? capacity_ : used;
}

void MemoryLogBuffer::SetUsed(uint32_t used) { StoreWord(base_ + kUsedOffset, used); }

int MemoryLogBuffer::size() const { return static_cast<int>(Used()); }

uint32_t MemoryLogBuffer::dumpCount() const {
  return base_ == nullptr ? 0 : LoadWord(base_ + kDumpsOffset);
}

int MemoryLogBuffer::write(const char* text, int length) {
  if (length == 0) return 1;
  if (length < 0 || text == nullptr || base_ == nullptr) return 0;
  uint32_t used = Used();
  if (static_cast<uint32_t>(length) > static_cast<uint32_t>(capacity_) - used) return 0;
  memcpy(base_ + kHeaderSize + used, text, length);
  SetUsed(used + length);
  return 1;
}

int MemoryLogBuffer::dump(int fd) {
  uint32_t used = Used();
  uint32_t done = 0;
  int result = 1;
  while (done < used) {
    ssize_t n = ::write(fd, base_ + kHeaderSize + done, used - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      result = 0;
      break;
    }
    done += static_cast<uint32_t>(n);
  }
  if (base_ == nullptr) return result;
  if (done == used) {
    SetUsed(0);
    StoreWord(base_ + kDumpsOffset, dumpCount() + 1);
  } else if (done > 0) {
    memmove(base_ + kHeaderSize, base_ + kHeaderSize + done, used - done);
    SetUsed(used - done);
  }
  return result;
}

void MemoryLogBuffer::clear() {
  if (base_ != nullptr) SetUsed(0);
}
