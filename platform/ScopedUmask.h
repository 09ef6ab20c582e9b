// ScopedUmask: sets the process umask for a scope and restores the caller's.
// The umask is process-wide: concurrent scopes in other threads see it too,
// which the log writers accept (they all set the same 002).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : saved_(umask(mask)) {}
  ~ScopedUmask() { umask(saved_); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t saved_;
};
