// sys_log_writer: the daemons' diagnostic log. Each line of text becomes one
// structured entry (kind 0x4000000, level 5, a single "description"
// attribute) in a readable text log that rotates at 102400 bytes and that
// several processes may share (synchronisation level 2).
//
// Construction reads "lang" and "CMLogPath" of section "Common" of
// "/etc/kvelo/morvane.ini". A writer whose log device could not be made is
// disabled: log() then prints each line on standard output.
//
// Three process-wide switches: setDebugMode(true) lets debug_log() write;
// setTermMode(true) sends log() and debug_log() to standard output instead;
// setWholeLogOff() silences debug_log() (not log()) until setDebugMode or
// setTermMode is called again.
//
// Thread safety: log, debug_log and WriteEntry from any thread. The switches
// are plain process-wide flags, not synchronised: set them at start-up.
#pragma once

#include <pthread.h>

#include "bexo_export.h"
#include "ux_LOG_LogDevice.h"
#include "ux_LOG_LogEntry.h"
#include "ux_LOG_LogWriter.h"
#include "ux_UTIL_no_inadvertant_copies.h"

// The locale number of a language code, by its first two characters:
// "fr" 1, "de" 2, "it" 3, "ja" 4, "ko" 5, "zh" 6, anything else 0.
BEXO_EXPORT int getBEXOLocale(const char* lang);

class BEXO_EXPORT sys_log_writer : public ux_UTIL_no_inadvertant_copies {
 public:
  // A null directory reads "CMLogPath" (default "/etc/kvelo/log"); a null
  // definition path means "/etc/kvelo/slf2.ldf".
  sys_log_writer(const char* logName, const char* logDirectory, const char* definitionPath);
  ~sys_log_writer();

  void log(const char* text);
  void debug_log(const char* text);
  int WriteEntry(ux_LOG_LogEntry* entry);  // 0, or -1
  int GenerateTextLogDevice();             // 0, or -1
  int InitThreadMutex();                   // the pthread_mutex_init result

  static void setDebugMode(bool on);
  static void setTermMode(bool on);
  static void setWholeLogOff();
  static bool getDebugMode();
  static bool getTermMode();

 private:
  void Emit(const char* text);

  ux_LOG_LogWriter writer_;
  ux_LOG_LogDevice* device_ = nullptr;
  bool enabled_ = false;
  char* log_directory_ = nullptr;
  char* log_name_ = nullptr;
  pthread_mutex_t thread_mutex_;

  static bool debug_mode;
  static bool term_mode;
  static bool disable_log_mode;
};
