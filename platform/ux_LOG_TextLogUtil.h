// ux_LOG_TextLogUtil: housekeeping of a structured text log.
//
// Thread safety: may run while writers and cursors use the log; a cursor
// keeps reading a file it has open even after the file is removed.
#pragma once

#include "bexo_export.h"

class BEXO_EXPORT ux_LOG_TextLogUtil {
 public:
  // Removes the rotated files of log NAME in DIRECTORY (a product path) last
  // written more than `days` calendar days before today (local dates, today
  // from bexo::WallClockNow). The active file is never removed. Returns how
  // many were removed, or -1 when the directory cannot be read.
  static int DeleteLogsByAge(const char* directory, const char* name, int days);
};
