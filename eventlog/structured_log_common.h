// What sys_log_writer and CM_log_writer/CM_log_reader share: the
// configuration they read, the making of their text log device and the write
// that re-creates the device once when the log's lock is contended.
//
// Thread safety: as the callers' (see their headers).
#pragma once

#include <pthread.h>
#include <stdint.h>

#include <functional>
#include <string>

#include "ux_LOG_LogDevice.h"
#include "ux_LOG_LogWriter.h"

namespace bexo_slog {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";
constexpr char kDefaultDefinitionPath[] = "/etc/kvelo/slf2.ldf";
constexpr uint32_t kRotationBytes = 102400;

using TextLogFactory = ux_LOG_TextLog* (*)(const char*, const char*, bool, const char*,
                                           const char*, bool);

// Removes and releases `device` (when set) from `writer`, then opens a new one
// through `factory` with umask 002, rotating at kRotationBytes under
// synchronisation level 2, and adds it. 0, or -1 with `device` null.
int MakeTextLogDevice(ux_LOG_LogWriter& writer, ux_LOG_LogDevice*& device, const char* directory,
                      const char* name, TextLogFactory factory);

// Removes and releases `device` from `writer`; `device` becomes null.
void ReleaseDevice(ux_LOG_LogWriter& writer, ux_LOG_LogDevice*& device);

// Writes with umask 002. When the write fails with "failed to get lock",
// runs `recreate` under `mutex` and writes once more. 0, or -1.
int WriteWithOneRetry(ux_LOG_LogWriter& writer, const ux_LOG_LogEntry* entry,
                      pthread_mutex_t* mutex, const std::function<int()>& recreate);

// Reads "lang" and "CMLogPath" of section "Common" of the configuration with
// ConfigFile, sets the locale and the code page "UTF8" and gives the
// directory (at most 255 characters, "" when missing). When the file cannot
// be read prints "ERROR: could not read config file %s \n" and returns false.
bool ApplyConfig(std::string* cm_log_path);

// pthread_mutex_init of an adaptive mutex; its result.
int InitAdaptiveMutex(pthread_mutex_t* mutex);

}  // namespace bexo_slog
