// ux_EXCEPTION_base: the exception the structured log library (ux_LOG_*)
// throws. get_message() gives its text; a log whose lock could not be had in
// time throws one whose message contains "failed to get lock".
//
// Thread safety: an immutable value.
#pragma once

#include <exception>
#include <string>

#include "bexo_export.h"

class BEXO_EXPORT ux_EXCEPTION_base : public std::exception {
 public:
  explicit ux_EXCEPTION_base(std::string message) : message_(std::move(message)) {}
  ~ux_EXCEPTION_base() override;

  const char* get_message() const { return message_.c_str(); }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};
