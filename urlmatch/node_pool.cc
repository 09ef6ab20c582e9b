#include "urlmatch/node_pool.h"

#include <stdlib.h>

#include <atomic>
#include <mutex>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BEXO_URL_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define BEXO_URL_POOL_BYPASS 1
#endif
#endif

namespace bexo_url {
namespace {

constexpr size_t kAlign = 8;

std::atomic<size_t> g_in_use{0};

size_t RoundUp(size_t size) { return (size + kAlign - 1) & ~(kAlign - 1); }

#ifndef BEXO_URL_POOL_BYPASS
constexpr size_t kChunkSize = 256 * 1024;
constexpr size_t kLargestPooled = 4096;  // larger blocks go to malloc

struct FreeBlock {
  FreeBlock* next;
};

class Pool {
 public:
  void* Allocate(size_t size) {
    std::lock_guard<std::mutex> hold(mutex_);
    FreeBlock*& head = free_[size / kAlign];
    if (head != nullptr) {
      FreeBlock* block = head;
      head = block->next;
      return block;
    }
    if (static_cast<size_t>(end_ - next_) < size) {
      char* chunk = static_cast<char*>(malloc(kChunkSize));
      if (chunk == nullptr) return nullptr;
      chunks_.push_back(chunk);
      next_ = chunk;
      end_ = chunk + kChunkSize;
    }
    void* block = next_;
    next_ += size;
    return block;
  }

  void Release(void* block, size_t size) {
    std::lock_guard<std::mutex> hold(mutex_);
    FreeBlock* freed = static_cast<FreeBlock*>(block);
    freed->next = free_[size / kAlign];
    free_[size / kAlign] = freed;
  }

 private:
  std::mutex mutex_;
  FreeBlock* free_[kLargestPooled / kAlign + 1] = {};
  std::vector<char*> chunks_;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

Pool& ThePool() {
  // Never destroyed: rule stores with static lifetime may release blocks
  // during exit, after this function's statics would be gone.
  static Pool* pool = new Pool;
  return *pool;
}
#endif

}  // namespace

void* PoolAllocate(size_t size) {
  size = RoundUp(size);
  void* block;
#ifndef BEXO_URL_POOL_BYPASS
  block = size <= kLargestPooled ? ThePool().Allocate(size) : malloc(size);
#else
  block = malloc(size);
#endif
  if (block != nullptr) g_in_use.fetch_add(size, std::memory_order_relaxed);
  return block;
}

void PoolRelease(void* block, size_t size) {
  if (block == nullptr) return;
  size = RoundUp(size);
  g_in_use.fetch_sub(size, std::memory_order_relaxed);
#ifndef BEXO_URL_POOL_BYPASS
  if (size <= kLargestPooled) {
    ThePool().Release(block, size);
    return;
  }
#endif
  free(block);
}

size_t PoolBytesInUse() { return g_in_use.load(std::memory_order_relaxed); }

}  // namespace bexo_url
