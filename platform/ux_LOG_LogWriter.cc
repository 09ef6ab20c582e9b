#include "ux_LOG_LogWriter.h"

#include <algorithm>

ux_LOG_LogWriter::ux_LOG_LogWriter(const char* name) : name_(name ? name : "") {}

ux_LOG_LogWriter::~ux_LOG_LogWriter() = default;

void ux_LOG_LogWriter::AddLogDevice(ux_LOG_LogDevice* device) {
  if (device == nullptr) return;
  std::lock_guard<std::mutex> guard(mutex_);
  if (std::find(devices_.begin(), devices_.end(), device) == devices_.end()) {
    devices_.push_back(device);
  }
}

void ux_LOG_LogWriter::RemoveLogDevice(ux_LOG_LogDevice* device) {
  std::lock_guard<std::mutex> guard(mutex_);
  devices_.erase(std::remove(devices_.begin(), devices_.end(), device), devices_.end());
}

void ux_LOG_LogWriter::WriteEntry(const ux_LOG_LogEntry& entry) {
  std::lock_guard<std::mutex> guard(mutex_);
  for (ux_LOG_LogDevice* device : devices_) device->Write(entry);
}
