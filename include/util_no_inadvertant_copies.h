// util_no_inadvertant_copies: a base class for objects that own large shared
// state (the URL rule stores) and must never be copied by accident.
//
// Thread safety: nothing to share.
#pragma once

class util_no_inadvertant_copies {
 protected:
  util_no_inadvertant_copies() = default;
  ~util_no_inadvertant_copies() = default;

 public:
  util_no_inadvertant_copies(const util_no_inadvertant_copies&) = delete;
  util_no_inadvertant_copies& operator=(const util_no_inadvertant_copies&) = delete;
};
