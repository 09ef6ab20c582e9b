#include "ux_LOG_LogConfig.h"

#include <atomic>
#include <mutex>

namespace {

struct Texts {
  std::mutex mutex;
  std::string definition_path;
  std::string code_page = "UTF8";
};

Texts& TheTexts() {
  static Texts* texts = new Texts;  // used until the process ends
  return *texts;
}

std::atomic<int> g_locale{0};
std::atomic<int> g_sync_level{0};
std::atomic<int> g_attr_len_action{0};
std::atomic<int> g_lock_wait_ms{ux_LOG_LogConfig::kDefaultLockWaitMs};

}  // namespace

void ux_LOG_LogConfig::SetDefinitionPath(const char* path) {
  std::lock_guard<std::mutex> guard(TheTexts().mutex);
  TheTexts().definition_path = path ? path : "";
}

std::string ux_LOG_LogConfig::GetDefinitionPath() {
  std::lock_guard<std::mutex> guard(TheTexts().mutex);
  return TheTexts().definition_path;
}

void ux_LOG_LogConfig::SetLocale(int locale) { g_locale = locale; }
int ux_LOG_LogConfig::GetLocale() { return g_locale; }

void ux_LOG_LogConfig::SetCodePage(const char* code_page) {
  std::lock_guard<std::mutex> guard(TheTexts().mutex);
  TheTexts().code_page = code_page ? code_page : "";
}

std::string ux_LOG_LogConfig::GetCodePage() {
  std::lock_guard<std::mutex> guard(TheTexts().mutex);
  return TheTexts().code_page;
}

void ux_LOG_LogConfig::SetSynchronizationLevel(int level) { g_sync_level = level; }
int ux_LOG_LogConfig::GetSynchronizationLevel() { return g_sync_level; }
void ux_LOG_LogConfig::SetActionAttrLenExceed(int action) { g_attr_len_action = action; }
int ux_LOG_LogConfig::GetActionAttrLenExceed() { return g_attr_len_action; }
void ux_LOG_LogConfig::SetLockWaitMs(int milliseconds) { g_lock_wait_ms = milliseconds; }
int ux_LOG_LogConfig::GetLockWaitMs() { return g_lock_wait_ms; }
