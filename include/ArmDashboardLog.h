// BEXO::AppControl::ArmDashboardLog: the daemons' handle on the
// application-control dashboard log. Each write records one per-application
// count as a row of the report log family "apparmdashboard" (written at once,
// not batched); the event log underneath owns the shared buffer, the dated
// text files of modes 1 and 2 and the lock file "/var/bexo/ARMDASHBOARDLOG.LOCK".
//
// In output mode 2 (text file only) nothing is recorded. A handle whose
// implementation could not be made answers -1 to Initialize and Refresh,
// false to writes and 0 to Flush.
//
// Thread safety: as BEXOEventLogBase; Initialize runs once, before the daemon
// forks its workers.
#pragma once

#include "bexo_export.h"

namespace BEXO {
namespace AppControl {

class ArmDashboardLogImpl;

class BEXO_EXPORT ArmDashboardLog {
 public:
  ArmDashboardLog();
  ~ArmDashboardLog();
  ArmDashboardLog(const ArmDashboardLog&) = delete;
  ArmDashboardLog& operator=(const ArmDashboardLog&) = delete;

  int Initialize(unsigned int bufferSize, const char* filePrefix, int outputMode,
                 const char* language, int maxFileSize);
  int Refresh(const char* filePrefix, int outputMode, const char* language);
  // True when the count was recorded. The name's spelling is the one the
  // daemons link against.
  bool WriteArmDashboradLog(unsigned int applicationId, long long first, long long second);
  int Flush();

 private:
  friend class ArmDashboardLogTestPeer;
  ArmDashboardLogImpl* impl_;
};

}  // namespace AppControl
}  // namespace BEXO
