// ux_LOG_LogWriter: sends each entry to the devices added to it. It does not
// own them: remove a device before releasing it.
//
// Thread safety: every function may be called from any thread; entries are
// written one at a time, in the order the threads reach the writer.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "bexo_export.h"
#include "ux_LOG_LogDevice.h"
#include "ux_LOG_LogEntry.h"
#include "ux_UTIL_no_inadvertant_copies.h"

class BEXO_EXPORT ux_LOG_LogWriter : public ux_UTIL_no_inadvertant_copies {
 public:
  explicit ux_LOG_LogWriter(const char* name);  // the name may be null
  ~ux_LOG_LogWriter();

  void AddLogDevice(ux_LOG_LogDevice* device);
  void RemoveLogDevice(ux_LOG_LogDevice* device);
  // Writes to every device; the first device's ux_EXCEPTION_base propagates.
  void WriteEntry(const ux_LOG_LogEntry& entry);
  const std::string& GetName() const { return name_; }

 private:
  const std::string name_;
  std::mutex mutex_;
  std::vector<ux_LOG_LogDevice*> devices_;
};
