// Block pool for trie nodes and child arrays. A rule list of a million rules
// makes millions of small blocks of a few sizes; carving them from large
// chunks saves the allocator's per-block header, keeps nodes made together
// close together, and recycles released blocks by size. Chunks go back to the
// system only at exit. Sanitizer builds use malloc so that the sanitizers see
// every block.
//
// Thread safety: any thread; one mutex guards the pool (taken only while
// rules are added or removed, never by a lookup).
#pragma once

#include <stddef.h>

namespace bexo_url {

// A block of at least `size` bytes (8-byte aligned), or null when memory runs out.
void* PoolAllocate(size_t size);
// Returns a block obtained from PoolAllocate with the same size.
void PoolRelease(void* block, size_t size);

// Bytes handed out and not released, for statistics.
size_t PoolBytesInUse();

}  // namespace bexo_url
