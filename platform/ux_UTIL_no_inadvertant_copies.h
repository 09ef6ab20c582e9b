// ux_UTIL_no_inadvertant_copies: a base class for the structured log classes,
// which own files, devices and locks and must never be copied by accident.
//
// Thread safety: nothing to share.
#pragma once

class ux_UTIL_no_inadvertant_copies {
 protected:
  ux_UTIL_no_inadvertant_copies() = default;
  ~ux_UTIL_no_inadvertant_copies() = default;

 public:
  ux_UTIL_no_inadvertant_copies(const ux_UTIL_no_inadvertant_copies&) = delete;
  ux_UTIL_no_inadvertant_copies& operator=(const ux_UTIL_no_inadvertant_copies&) = delete;
};
