// ux_LOG_LogConfig: the structured log library's process-wide settings. Every
// writer, device and cursor of the process shares them: the last one set wins.
//
//   definition path   the log definition file ("/etc/kvelo/slf2.ldf"), kept for callers
//   locale, code page the language number and text encoding writers announce ("UTF8")
//   synchronisation   the level new text logs start with: 2 appends each entry
//                     under the log's lock file (several processes), below 2
//                     only threads of one process are serialised
//   attribute length  what an over-long string attribute does: 1 cut it, else refuse it
//   lock wait         how long a level-2 write waits for the lock (ms) before
//                     it throws "failed to get lock"
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <string>

#include "bexo_export.h"

class BEXO_EXPORT ux_LOG_LogConfig {
 public:
  static constexpr int kDefaultLockWaitMs = 10000;

  static void SetDefinitionPath(const char* path);
  static std::string GetDefinitionPath();
  static void SetLocale(int locale);
  static int GetLocale();
  static void SetCodePage(const char* code_page);
  static std::string GetCodePage();
  static void SetSynchronizationLevel(int level);
  static int GetSynchronizationLevel();
  static void SetActionAttrLenExceed(int action);
  static int GetActionAttrLenExceed();
  static void SetLockWaitMs(int milliseconds);
  static int GetLockWaitMs();
};
