#include "eventlog/ArmDashboardLogImpl.h"

namespace BEXO {
namespace AppControl {

ArmDashboardLogImpl::ArmDashboardLogImpl()
    : BEXOEventLogBase("/var/bexo/ARMDASHBOARDLOG.LOCK", "armdashboardlog") {}

ArmDashboardLogImpl::~ArmDashboardLogImpl() = default;

bool ArmDashboardLogImpl::WriteArmDashboardLog(unsigned int applicationId, long long first,
                                               long long second) {
  if (GetOutputMode() == 2) return false;
  return GetReportHistoryWriter().WriteAppArmDashboardLog(
             applicationId, first, static_cast<unsigned long long>(second)) > 0;
}

}  // namespace AppControl
}  // namespace BEXO
