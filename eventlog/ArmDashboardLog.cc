#include "ArmDashboardLog.h"

#include <new>

#include "eventlog/ArmDashboardLogImpl.h"

namespace BEXO {
namespace AppControl {

ArmDashboardLog::ArmDashboardLog() : impl_(nullptr) {
  try {
    impl_ = new ArmDashboardLogImpl;
  } catch (const std::bad_alloc&) {
    // Left null: every operation then answers failure.
  }
}

ArmDashboardLog::~ArmDashboardLog() { delete impl_; }

int ArmDashboardLog::Initialize(unsigned int bufferSize, const char* filePrefix, int outputMode,
                                const char* language, int maxFileSize) {
  if (impl_ == nullptr) return -1;
  return impl_->Initialize(true, bufferSize, filePrefix, outputMode, language, false, maxFileSize);
}

int ArmDashboardLog::Refresh(const char* filePrefix, int outputMode, const char* language) {
  if (impl_ == nullptr) return -1;
  return impl_->Refresh(filePrefix, outputMode, language, false);
}

bool ArmDashboardLog::WriteArmDashboradLog(unsigned int applicationId, long long first,
                                          long long second) {
  if (impl_ == nullptr) return false;
  return impl_->WriteArmDashboardLog(applicationId, first, second);
}

int ArmDashboardLog::Flush() {
  if (impl_ == nullptr) return 0;
  return impl_->Flush();
}

}  // namespace AppControl
}  // namespace BEXO
