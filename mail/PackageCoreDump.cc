// Core dump packaging and the notification mail that goes with it.
#include "PackageCoreDump.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include "PrivateProfile.h"
#include "UxResBundle.h"
#include "bexo_util.h"
#include "mailqueue.h"
#include "process_spawn.h"
#include "product_path.h"

namespace {

constexpr char kCorePrefix[] = "core_";
constexpr char kMailNode[] = "nod_CoreDumpPackageMail";
constexpr char kFallbackSubject[] = "Core dump package generated";
constexpr char kFallbackBody[] =
    "A core dump package may have been generated - check the Administration->Support page on the web console.";

// `dir` joined with `name`, a "/" between unless `dir` ends in one.
void JoinPath(const char* dir, const char* name, char* out, size_t size) {
  if (CheckPathLastSlash(dir)) {
    bexo_snprintf(out, size, "%s%s", dir, name);
  } else {
    bexo_snprintf(out, size, "%s%c%s", dir, '/', name);
  }
}

void SplitBody(const char* text, std::list<std::string>& body) {
  const char* piece = text;
  for (const char* lf; (lf = strchr(piece, '\n')) != nullptr; piece = lf + 1) body.emplace_back(piece, lf);
  if (strlen(piece) > 1) body.emplace_back(piece);  // a stray last character is dropped on purpose
}

}  // namespace

void notification_queue_path(const char* ini, char* out, int size) {
  std::string fallback = bexo::ProductPath("/etc/kvelo/mailq");
  GetPrivateProfileString("notification", "mail_queue_path", fallback.c_str(), out, static_cast<unsigned>(size), ini);
}

bool file_exists(const char* dir, char* name) {
  char path[256];
  JoinPath(dir, name, path, sizeof path);
  FILE* file = fopen(path, "re");
  if (file == nullptr) return false;
  fclose(file);
  return true;
}

int check_corefile_existence(char* dir) {
  std::string command = "ls -F " + bexo::ShellQuote(dir) + " 2>/dev/null | grep -E -e '" + kCorePrefix +
                        "|bexotrace' > /dev/null";
  return bexo::RunShellInheritingDescriptors(command.c_str()) == 0 ? 0 : -1;
}

int compose_core_package_filename(const char* dumpDir, char* out, int size) {
  if (size <= 0) return -1;
  time_t now = time(nullptr);
  struct tm local;
  if (localtime_r(&now, &local) == nullptr) return -1;
  char stamp[32];
  bexo_snprintf(stamp, sizeof stamp, "%.2d%.2d%.4d%.2d%.2d", local.tm_mon + 1, local.tm_mday, local.tm_year + 1900,
                local.tm_hour, local.tm_min);
  for (int counter = 0; counter < INT_MAX; ++counter) {
    bexo_snprintf(out, static_cast<size_t>(size), "%s_%s_%.4d", "dump_file", stamp, counter);
    if (!file_exists(dumpDir, out)) return 0;
  }
  return -1;
}

bool getUTF8Notification(const char* node, char* subject, std::list<std::string>& body) {
  char lang[16];
  GetPrivateProfileString("Common", "lang", "en", lang, sizeof lang,
                          bexo::ProductPath("/etc/kvelo/morvane.ini").c_str());
  std::string path = bexo::ProductPath(std::string(bexo::kResourceBundleDirectory) + "/daemon");
  UxResBundle bundle(path.c_str(), lang);
  UResourceBundle* table = bundle.getNodeResBundle(node);
  char text[UxResBundle::kUTF8OutputSize];
  // A failed lookup has already closed the table.
  if (table == nullptr || !bundle.getUTF8String(table, "tok_body", text)) {
    body.clear();
    return false;
  }
  SplitBody(text, body);
  if (!bundle.getUTF8String(table, "tok_subject", subject)) {
    body.clear();
    return false;
  }
  ures_close(table);
  return true;
}

int sendNotification(const char* subject, std::list<std::string>& body, char* ini) {
  _DMailReq req = {};
  GetPrivateProfileString("notification", "from_addr", "root@localhost", req.sender, sizeof req.sender, ini);
  char to[kMailFieldSize];
  GetPrivateProfileString("notification", "to_addr", "root", to, sizeof to, ini);
  for (char* item = to; *item;) {
    size_t len = strcspn(item, ",");
    bool last = item[len] == '\0';
    item[len] = '\0';
    if (len > 0) req.recipients = dplist_add(req.recipients, item);
    item += len + (last ? 0 : 1);
  }
  bexo_snprintf(req.subject, sizeof req.subject, "%s", subject);
  for (const std::string& line : body) req.body = dplist_add(req.body, line.c_str());
  char queue[1024];
  notification_queue_path(ini, queue, sizeof queue);
  mailqueue_put(&req, queue);  // a mail that cannot be queued is not reported
  mailqueue_free_request(&req);
  return 0;
}

int package_core_dump(char* ini, char* script, char* corePath, char* dumpPath, char* packageName, bool useShell) {
  char subject[kNotificationSubjectSize];
  std::list<std::string> body;
  if (!getUTF8Notification(kMailNode, subject, body)) {
    bexo_snprintf(subject, sizeof subject, "%s", kFallbackSubject);
    body.assign(1, kFallbackBody);
  }
  char send[16];
  GetPrivateProfileString("notification", "send_coredump_mail", "", send, sizeof send, ini);
  if (strcmp(send, "true") == 0) sendNotification(subject, body, ini);
  if (useShell) {
    std::string command = std::string(script) + " " + corePath + " " + kCorePrefix + " " + dumpPath + " " + packageName;
    bexo::RunShellInheritingDescriptors(command.c_str());  // the script's own result is not reported
    return 0;
  }
  const char* const argv[] = {"PackageCore.sh", corePath, kCorePrefix, dumpPath, packageName, nullptr};
  bexo::ReplaceProcess(script, argv);
  return 0;
}

int plan_core_package(const char* productDir, CorePackagePlan* plan) {
  JoinPath(productDir, "morvane.ini", plan->ini, sizeof plan->ini);
  JoinPath(productDir, "PackageCore.sh", plan->script, sizeof plan->script);
  GetPrivateProfileString("debug", "core_path", productDir, plan->core_path, sizeof plan->core_path, plan->ini);
  if (check_corefile_existence(plan->core_path) != 0) return 0;
  GetPrivateProfileString("debug", "dump_path", productDir, plan->dump_path, sizeof plan->dump_path, plan->ini);
  return compose_core_package_filename(plan->dump_path, plan->package_name, sizeof plan->package_name) == 0 ? 1 : 0;
}

int fork_package_core_dump(const char* productDir, int* pid) {
  *pid = 0;
  CorePackagePlan plan;
  if (plan_core_package(productDir, &plan) != 1) return 0;
  // The daemon's descriptors stay usable for the notice but not in the script.
  const pid_t child = bexo::ForkChild([&plan] {
    package_core_dump(plan.ini, plan.script, plan.core_path, plan.dump_path, plan.package_name, false);
  });
  if (child < 0) return -1;
  *pid = child;
  return 0;
}
