// MemoryLogBuffer: a line buffer kept entirely inside bytes that the caller
// owns, typically a System V shared-memory segment that a daemon attaches
// before it forks its workers. Because the fill level lives in those bytes
// too, every process that inherited the mapping sees one buffer: a line one
// worker appends is dumped by whichever process finds the buffer full.
//
// Layout of the caller's bytes (native byte order):
//
//   offset 0  uint32  fill level: bytes of text buffered, 0..capacity
//   offset 4  uint32  dumps: number of successful dumps (wraps)
//   offset 8  text    capacity = size - 8 bytes, filled from the start
//
// The text is the concatenation of the lines written, exactly as given; the
// buffer adds no framing. A line is taken whole or not at all. The fill level
// is raised only after the text is copied, so a writer that dies midway
// leaves the buffer as it was.
//
// Thread safety: none. Every process and thread that shares the bytes must
// hold one common lock around each call (the event log holds its in-process
// and cross-process mutexes).
#pragma once

#include <stdint.h>

#include "bexo_export.h"

class BEXO_EXPORT MemoryLogBuffer {
 public:
  static constexpr int kHeaderSize = 8;

  // Takes over `size` bytes at `memory` and empties the buffer. Fewer than
  // kHeaderSize bytes (or null memory) give a buffer that takes nothing.
  MemoryLogBuffer(void* memory, int size);
  MemoryLogBuffer(const MemoryLogBuffer&) = delete;
  MemoryLogBuffer& operator=(const MemoryLogBuffer&) = delete;

  // Appends `length` bytes. Non-zero when they fit (a zero length always
  // fits), zero when the buffer is too full or the length is negative.
  int write(const char* text, int length);
  // Writes everything buffered to `fd` and empties the buffer. 1 when all of
  // it reached the descriptor (also when nothing was buffered), 0 when a
  // write failed: the bytes not yet written stay buffered for the next dump.
  int dump(int fd);
  // Discards everything buffered.
  void clear();

  int capacity() const { return capacity_; }
  int size() const;  // bytes buffered now
  uint32_t dumpCount() const;

 private:
  // The fill level, clamped: the bytes are shared, so never trust them.
  uint32_t Used() const;
  void SetUsed(uint32_t used);

  char* base_;  // the caller's bytes; the header may be unaligned
  int capacity_;
};
