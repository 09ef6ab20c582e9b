#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#include "CM_log_writer_and_reader.h"
#include "ScopedUmask.h"
#include "UxLog.h"
#include "eventlog/structured_log_common.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_TextLog.h"
#include "wall_clock.h"

namespace {

constexpr unsigned int kLevel = 9;
constexpr unsigned int kVirusKind = 3;
constexpr unsigned int kUrlBlockingKind = 9;
constexpr unsigned int kWebSecurityKind = 24;
constexpr unsigned int kDlpKind = 0x4000042;
constexpr char kReleasedLogName[] = "CM";

constexpr int kDateSize = 127;
constexpr char kPlaceholderDate[] = "1999-02-28 12:00:00";

// The two date buffers of an entry, pre-filled as the writers always did.
struct Dates {
  char local[kDateSize];
  char utc[kDateSize];
  Dates() {
    snprintf(local, sizeof local, "%s", kPlaceholderDate);
    snprintf(utc, sizeof utc, "%s", kPlaceholderDate);
  }
  bool Read() { return CM_log_writer::getDateTime(local, sizeof local, utc, sizeof utc); }
};

void U8(ux_LOG_LogEntry& entry, const char* name, int value) {
  entry.AddAttrib1u(name, static_cast<uint8_t>(value));  // low 8 bits: deliberate
}

void OptionalU8(ux_LOG_LogEntry& entry, const char* name, int value) {
  if (value != -1) U8(entry, name, value);
}

void OptionalText(ux_LOG_LogEntry& entry, const char* name, const char* text) {
  if (text != nullptr) entry.AddAttribMBStr(name, text);
}

// Lets `fill` add the entry's attributes (after the two date texts when
// `dated`) and writes the entry. A platform exception while building prints
// its message and drops the entry; so does a clock getDateTime refuses.
template <typename Fill>
void Record(CM_log_writer& writer, ux_LOG_LogEntry& entry, bool dated, Fill fill) {
  Dates dates;
  if (dated && !dates.Read()) return;
  try {
    if (dated) {
      entry.AddAttribMBStr("local_datetime", dates.local);
      entry.AddAttribMBStr("UTC_datetime", dates.utc);
    }
    fill();
  } catch (const ux_EXCEPTION_base& e) {
    printf("%s \n", e.get_message());
    return;
  }
  writer.WriteEntry(&entry);
}

}  // namespace

CM_log_writer::CM_log_writer(const char* definitionPath, const char* logDirectory,
                             const char* logName)
    : writer_(nullptr) {
  if (InitThreadMutex() != 0) return;
  ScopedUmask mask(002);
  ux_LOG_LogConfig::SetDefinitionPath(definitionPath ? definitionPath
                                                     : bexo_slog::kDefaultDefinitionPath);
  ux_LOG_LogConfig::SetActionAttrLenExceed(1);
  std::string configured_directory;
  if (!bexo_slog::ApplyConfig(&configured_directory)) return;
  log_directory_ = strdup(logDirectory ? logDirectory : configured_directory.c_str());
  if (logName != nullptr) log_name_ = strdup(logName);
  ux_LOG_LogConfig::SetSynchronizationLevel(2);
  pthread_mutex_lock(&thread_mutex_);
  enabled_ = GenerateTextLogDevice() == 0;
  pthread_mutex_unlock(&thread_mutex_);
}

CM_log_writer::~CM_log_writer() {
  bexo_slog::ReleaseDevice(writer_, device_);
  free(log_directory_);
  free(log_name_);
}

int CM_log_writer::InitThreadMutex() { return bexo_slog::InitAdaptiveMutex(&thread_mutex_); }

int CM_log_writer::GenerateTextLogDevice() {
  return bexo_slog::MakeTextLogDevice(writer_, device_, log_directory_, log_name_,
                                      ux_LOG_LogDevice::GetTextLog);
}

int CM_log_writer::WriteEntry(ux_LOG_LogEntry* entry) {
  return bexo_slog::WriteWithOneRetry(writer_, entry, &thread_mutex_,
                                      [this] { return GenerateTextLogDevice(); });
}

void CM_log_writer::release_handle() {
  if (!enabled_) return;
  if (device_ != nullptr && UxLog::canLog(3)) {
    UxLog::writeLog3(3, "CM_log_writer_and_reader.cpp", __LINE__, "release_handle",
                     UxLog::LogStr("leaving %s for the log %s",
                                   static_cast<ux_LOG_TextLog*>(device_)->GetActiveLogPath(),
                                   kReleasedLogName));
  }
  bexo_slog::ReleaseDevice(writer_, device_);
  enabled_ = false;
  std::string configured_directory;
  if (!bexo_slog::ApplyConfig(&configured_directory)) return;
  ScopedUmask mask(002);
  ux_LOG_TextLog* log =
      ux_LOG_LogDevice::GetTextLog(log_directory_, kReleasedLogName, true, nullptr, nullptr, false);
  if (log == nullptr) return;
  device_ = log;
  writer_.AddLogDevice(device_);
  enabled_ = true;
}

bool CM_log_writer::getDateTime(char* localBuffer, int localSize, char* utcBuffer, int utcSize) {
  if (localBuffer == nullptr || utcBuffer == nullptr || localSize < 20 || utcSize < 20) {
    return false;
  }
  time_t now = bexo::WallClockNow().tv_sec;
  struct tm local, utc;
  localtime_r(&now, &local);
  gmtime_r(&now, &utc);
  snprintf(localBuffer, static_cast<size_t>(localSize), "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d",
           local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
           local.tm_sec);
  snprintf(utcBuffer, static_cast<size_t>(utcSize), "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d",
           utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return true;
}

void CM_log_writer::write_virus_log(const char* virusName, const char* filename,
                                    const char* downloadSource, const char* clientIp,
                                    const char* loginUser, const char* userMail,
                                    const char* majorType, const char* minorType, int firstAction,
                                    int firstActionResult, int secondAction,
                                    int secondActionResult) {
  if (!enabled_) return;
  ux_LOG_LogEntry entry(kVirusKind, kLevel);
  Record(*this, entry, false, [&] {
    entry.AddAttribMBStr("virus_name", virusName);
    entry.AddAttribMBStr("filename", filename);
    entry.AddAttribMBStr("download_source", downloadSource);
    entry.AddAttribMBStr("client_ip", clientIp);
    entry.AddAttribMBStr("login_user", loginUser);
    entry.AddAttribMBStr("user_mail", userMail);
    U8(entry, "first_action", firstAction);
    U8(entry, "first_action_result", firstActionResult);
    U8(entry, "second_action", secondAction);
    U8(entry, "second_action_result", secondActionResult);
    if (majorType != nullptr && *majorType != '\0') entry.AddAttribMBStr("majortype", majorType);
    if (minorType != nullptr && *minorType != '\0') entry.AddAttribMBStr("minortype", minorType);
  });
}

void CM_log_writer::write_url_blocking_log(const char* objectNameUrl, const char* clientIp,
                                           const char* loginUser, const char* userMail,
                                           const char* filename, int blockingType,
                                           const char* blockingRule, const char* oppId) {
  if (!enabled_) return;
  ux_LOG_LogEntry entry(kUrlBlockingKind, kLevel);
  Record(*this, entry, false, [&] {
    entry.AddAttribMBStr("object_name_url", objectNameUrl);
    entry.AddAttribMBStr("client_ip", clientIp);
    entry.AddAttribMBStr("login_user", loginUser);
    entry.AddAttribMBStr("user_mail", userMail);
    entry.AddAttribMBStr("filename", filename);
    U8(entry, "blocking_type", blockingType);
    entry.AddAttribMBStr("blocking_rule", blockingRule);
    entry.AddAttribMBStr("OPP_id", oppId);
  });
}

void CM_log_writer::write_web_security_violation_log(
    const char* fullPathUrl, const char* clientIp, const char* loginUser, const char* userMail,
    const char* filename, int blockingType, const char* detectionRule, const char* oppId,
    int userAgentType, int detectionType, const char* categoryIdList, int reputationLevel,
    int reputationScore, const char* policyName, int action, int isRkdxDetection,
    int rkdxDetectionSource, int rkdxRiskLevel) {
  if (!enabled_) return;
  ux_LOG_LogEntry entry(kWebSecurityKind, kLevel);
  Record(*this, entry, true, [&] {
    entry.AddAttribMBStr("full_path_url", fullPathUrl);
    entry.AddAttribMBStr("client_ip", clientIp);
    entry.AddAttribMBStr("login_user", loginUser);
    entry.AddAttribMBStr("user_mail", userMail);
    entry.AddAttribMBStr("filename", filename);
    U8(entry, "blocking_type", blockingType);
    entry.AddAttribMBStr("detection_rule", detectionRule);
    entry.AddAttribMBStr("OPP_id", oppId);
    OptionalU8(entry, "user_agent_type", userAgentType);
    OptionalU8(entry, "detection_type", detectionType);
    OptionalText(entry, "category_id_list", categoryIdList);
    OptionalU8(entry, "reputation_level", reputationLevel);
    OptionalU8(entry, "reputation_score", reputationScore);
    OptionalText(entry, "policy_name", policyName);
    OptionalU8(entry, "action", action);
    U8(entry, "is_rkdx_detection", isRkdxDetection);
    OptionalU8(entry, "rkdx_detection_source", rkdxDetectionSource);
    OptionalU8(entry, "rkdx_risk_level", rkdxRiskLevel);
  });
}

void CM_log_writer::write_dlp_log(const char* clientIp, const char* userName,
                                  const char* userDomain, const char* userMail,
                                  const char* objectNameUrl, const char* policyName,
                                  const char* filename, const char* templates,
                                  const char* protocol, int actionFlag,
                                  const char* matchedContent) {
  if (!enabled_) return;
  ux_LOG_LogEntry entry(kDlpKind, kLevel);
  Record(*this, entry, true, [&] {
    entry.AddAttribMBStr("client_ip", clientIp);
    entry.AddAttribMBStr("user_name", userName);
    entry.AddAttribMBStr("user_domain", userDomain);
    entry.AddAttribMBStr("user_mail", userMail);
    entry.AddAttribMBStr("object_name_url", objectNameUrl);
    entry.AddAttribMBStr("policy_name", policyName);
    entry.AddAttribMBStr("filename", filename);
    entry.AddAttribMBStr("templates", templates);
    bool http = protocol != nullptr && strcasecmp(protocol, "http") == 0;
    U8(entry, "blocking_type", http ? 5 : 6);
    U8(entry, "action", actionFlag == 1 ? 0 : 3);
    entry.AddAttribMBStr("matched_content", matchedContent);
  });
}

void CM_log_writer::write_event_log(int entryId, const char* description, int componentCode,
                                    int reasonCode) {
  if (!enabled_) return;
  ux_LOG_LogEntry entry;
  Record(*this, entry, false, [&] {
    entry.SetEntryID(static_cast<unsigned int>(entryId));
    entry.SetLogLevel(5);
    if (description != nullptr) {
      entry.AddAttribMBStr("description", description);
      entry.AddAttrib4u("COMPONENT_CODE", static_cast<uint32_t>(componentCode));
      entry.AddAttrib4("REASON_CODE", reasonCode);
    }
  });
}
