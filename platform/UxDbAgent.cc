#include "UxDbAgent.h"

#include "product_path.h"

UxDbAgent::UxDbAgent(const char* section) : settings_(ReadDbSettings(section)) {}

UxDbAgent::UxDbAgent(const DbSettings& settings) : settings_(settings) {}

UxDbAgent::~UxDbAgent() = default;

UxDbConnect& UxDbAgent::getConnection() {
  if (!connect_) {
    if (!settings_.read) {
      throw UxDbException("cannot read " + bexo::ProductPath("/etc/kvelo/morvane.ini"));
    }
    connect_ = std::make_unique<UxDbConnect>(settings_);
  }
  return *connect_;
}
