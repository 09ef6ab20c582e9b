#include "eventlog/structured_log_common.h"

#include <stdio.h>
#include <string.h>

#include "ConfigFile.h"
#include "ScopedUmask.h"
#include "product_path.h"
#include "sys_log_writer.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_TextLog.h"

namespace bexo_slog {

void ReleaseDevice(ux_LOG_LogWriter& writer, ux_LOG_LogDevice*& device) {
  if (device == nullptr) return;
  writer.RemoveLogDevice(device);
  device->ReleaseLog();
  device = nullptr;
}

int MakeTextLogDevice(ux_LOG_LogWriter& writer, ux_LOG_LogDevice*& device, const char* directory,
                      const char* name, TextLogFactory factory) {
  ReleaseDevice(writer, device);
  ScopedUmask mask(002);
  ux_LOG_TextLog* log = factory(directory, name, true, nullptr, nullptr, false);
  if (log == nullptr) return -1;
  try {
    log->SetRotationBySize(kRotationBytes);
    log->SetSynchronizationLevel(2);
    writer.AddLogDevice(log);
  } catch (const ux_EXCEPTION_base& e) {
    printf("ERROR : %s \n", e.get_message());
    log->ReleaseLog();
    return -1;
  }
  device = log;
  return 0;
}

int WriteWithOneRetry(ux_LOG_LogWriter& writer, const ux_LOG_LogEntry* entry,
                      pthread_mutex_t* mutex, const std::function<int()>& recreate) {
  if (entry == nullptr) return -1;
  ScopedUmask mask(002);
  for (int attempt = 1;; ++attempt) {
    try {
      writer.WriteEntry(*entry);
      return 0;
    } catch (const ux_EXCEPTION_base& e) {
      if (attempt == 2 || strstr(e.get_message(), "failed to get lock") == nullptr) return -1;
    }
    pthread_mutex_lock(mutex);
    int made = recreate();
    pthread_mutex_unlock(mutex);
    if (made != 0) return -1;
  }
}

bool ApplyConfig(std::string* cm_log_path) {
  const std::string path = bexo::ProductPath(kConfigPath);
  ConfigFile config;
  if (!config.read_config(path)) {
    printf("ERROR: could not read config file %s \n", path.c_str());
    return false;
  }
  ux_LOG_LogConfig::SetLocale(getBEXOLocale(config.get_value("Common", "lang").value_or("en").c_str()));
  ux_LOG_LogConfig::SetCodePage("UTF8");
  *cm_log_path = config.get_value("Common", "CMLogPath").value_or("").substr(0, 255);
  return true;
}

int InitAdaptiveMutex(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ADAPTIVE_NP);
  int result = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return result;
}

}  // namespace bexo_slog
