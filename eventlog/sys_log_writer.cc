#include "sys_log_writer.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "PrivateProfile.h"
#include "ScopedUmask.h"
#include "eventlog/structured_log_common.h"
#include "product_path.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"

namespace {

constexpr unsigned int kEntryKind = 0x4000000;
constexpr unsigned int kEntryLevel = 5;
constexpr char kDefaultLogDirectory[] = "/etc/kvelo/log";

}  // namespace

bool sys_log_writer::debug_mode = false;
bool sys_log_writer::term_mode = false;
bool sys_log_writer::disable_log_mode = false;

int getBEXOLocale(const char* lang) {
  static const char* const kCodes[] = {"fr", "de", "it", "ja", "ko", "zh"};
  if (lang == nullptr) return 0;
  for (int i = 0; i < 6; ++i) {
    if (strncmp(lang, kCodes[i], 2) == 0) return i + 1;
  }
  return 0;
}

sys_log_writer::sys_log_writer(const char* logName, const char* logDirectory,
                               const char* definitionPath)
    : writer_(nullptr) {
  if (InitThreadMutex() != 0) return;
  ScopedUmask mask(002);
  try {
    ux_LOG_LogConfig::SetDefinitionPath(definitionPath ? definitionPath
                                                       : bexo_slog::kDefaultDefinitionPath);
    const std::string config = bexo::ProductPath(bexo_slog::kConfigPath);
    char lang[8];
    GetPrivateProfileString("Common", "lang", "en", lang, sizeof lang, config.c_str());
    ux_LOG_LogConfig::SetLocale(getBEXOLocale(lang));
    ux_LOG_LogConfig::SetCodePage("UTF8");
    if (logDirectory != nullptr) {
      log_directory_ = strdup(logDirectory);
    } else {
      char directory[256];
      GetPrivateProfileString("Common", "CMLogPath", kDefaultLogDirectory, directory,
                              sizeof directory, config.c_str());
      log_directory_ = strdup(directory);
    }
    if (logName != nullptr) log_name_ = strdup(logName);
    pthread_mutex_lock(&thread_mutex_);
    enabled_ = GenerateTextLogDevice() == 0;
    pthread_mutex_unlock(&thread_mutex_);
  } catch (const ux_EXCEPTION_base& e) {
    printf("ERROR : %s \n", e.get_message());
    enabled_ = false;
  }
}

sys_log_writer::~sys_log_writer() {
  bexo_slog::ReleaseDevice(writer_, device_);
  free(log_directory_);
  free(log_name_);
}

int sys_log_writer::InitThreadMutex() { return bexo_slog::InitAdaptiveMutex(&thread_mutex_); }

int sys_log_writer::GenerateTextLogDevice() {
  return bexo_slog::MakeTextLogDevice(writer_, device_, log_directory_, log_name_,
                                      ux_LOG_LogDevice::GetReadableTextLog);
}

int sys_log_writer::WriteEntry(ux_LOG_LogEntry* entry) {
  return bexo_slog::WriteWithOneRetry(writer_, entry, &thread_mutex_,
                                      [this] { return GenerateTextLogDevice(); });
}

void sys_log_writer::Emit(const char* text) {
  if (!enabled_ || term_mode) {
    puts(text ? text : "");
    return;
  }
  try {
    ux_LOG_LogEntry entry(kEntryKind, kEntryLevel);
    entry.AddAttribMBStr("description", text);
    WriteEntry(&entry);
  } catch (const ux_EXCEPTION_base& e) {
    printf("%s \n", e.get_message());
  }
}

void sys_log_writer::log(const char* text) { Emit(text); }

void sys_log_writer::debug_log(const char* text) {
  if (disable_log_mode || !enabled_ || !debug_mode) return;
  Emit(text);
}

void sys_log_writer::setDebugMode(bool on) {
  debug_mode = on;
  disable_log_mode = false;
}

void sys_log_writer::setTermMode(bool on) {
  term_mode = on;
  disable_log_mode = false;
}

void sys_log_writer::setWholeLogOff() { disable_log_mode = true; }
bool sys_log_writer::getDebugMode() { return debug_mode; }
bool sys_log_writer::getTermMode() { return term_mode; }
