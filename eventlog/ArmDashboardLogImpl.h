// ArmDashboardLogImpl: the event log behind BEXO::AppControl::ArmDashboardLog.
// Its records go to the report history writer, not into the text buffer.
//
// Thread safety: as BEXOEventLogBase.
#pragma once

#include "EventLogBase.h"

namespace BEXO {
namespace AppControl {

class ArmDashboardLogImpl : public BEXOEventLogBase {
 public:
  ArmDashboardLogImpl();
  ~ArmDashboardLogImpl() override;

  // Records one count unless the log is in mode 2 (text file only); true when
  // the report writer took it.
  bool WriteArmDashboardLog(unsigned int applicationId, long long first, long long second);
};

}  // namespace AppControl
}  // namespace BEXO
