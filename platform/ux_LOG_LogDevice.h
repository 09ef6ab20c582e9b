// ux_LOG_LogDevice: where a ux_LOG_LogWriter sends its entries. The only kind
// is the rotating text log (ux_LOG_TextLog), made by the two factories here.
//
//   GetReadableTextLog(directory, name, create, nullptr, nullptr, false)
//   GetTextLog(directory, name, create, nullptr, nullptr, false)
//
// open (and with `create` make, directory included) the log NAME in
// DIRECTORY, a product path. Files of a readable log are created with mode
// 0664, the others 0660, less the process umask. A null name opens "ux_log".
// The last three arguments are reserved: pass null, null, false. Both return
// null when the log cannot be opened. ReleaseLog closes and frees a device
// (remove it from its writers first).
//
// Thread safety: Write may be called from several threads; ReleaseLog once,
// when no thread uses the device any more.
#pragma once

#include <sys/types.h>

#include <string>

#include "bexo_export.h"
#include "ux_LOG_LogEntry.h"
#include "ux_UTIL_no_inadvertant_copies.h"

class ux_LOG_TextLog;

class BEXO_EXPORT ux_LOG_LogDevice : public ux_UTIL_no_inadvertant_copies {
 public:
  static ux_LOG_TextLog* GetReadableTextLog(const char* directory, const char* name, bool create,
                                            const char* reserved1, const char* reserved2,
                                            bool reserved3);
  static ux_LOG_TextLog* GetTextLog(const char* directory, const char* name, bool create,
                                    const char* reserved1, const char* reserved2, bool reserved3);

  // Appends one entry; throws ux_EXCEPTION_base when it cannot.
  virtual void Write(const ux_LOG_LogEntry& entry) = 0;
  virtual void SetSynchronizationLevel(int level) = 0;
  void ReleaseLog();

 protected:
  ux_LOG_LogDevice() = default;
  virtual ~ux_LOG_LogDevice();

 private:
  static ux_LOG_TextLog* MakeTextLog(const std::string& directory, const std::string& name,
                                     mode_t mode);
};
