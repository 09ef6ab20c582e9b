// Core dump packaging: a daemon that restarts after a crash calls
// fork_package_core_dump. When core files ("core_*" or "bexotrace*") are left
// in the configured core directory, a forked child packs them with the
// product's "PackageCore.sh" into a uniquely named package and, when
// configured, queues a localized notice through the mail queue.
//
// Configuration, "morvane.ini" of the product directory:
//   [debug]        core_path, dump_path    default: the product directory
//   [notification] send_coredump_mail      mail only when exactly "true"
//                  from_addr (root@localhost), to_addr ("root", comma-separated),
//                  mail_queue_path ("/etc/kvelo/mailq")
// Texts: bundle "/etc/kvelo/resource/daemon", node "nod_CoreDumpPackageMail",
// keys "tok_subject" and "tok_body", in the locale named by "lang" of section
// "Common" of "/etc/kvelo/morvane.ini" ("en" when unset); English fallback
// texts when the bundle cannot be read.
//
// Nothing is logged; failures silently produce no package.
// Thread safety: reentrant; the forked child runs single-threaded.
#pragma once

#include <list>
#include <string>

#include "bexo_export.h"

// Buffer size of the subject that getUTF8Notification fills.
constexpr int kNotificationSubjectSize = 2048;

// Where fork_package_core_dump finds everything for one package.
struct CorePackagePlan {
  char ini[256];
  char script[256];
  char core_path[256];
  char dump_path[256];
  char package_name[256];
};

// Fills `plan` for `productDir`: 1 when a core file exists and a package name
// was composed, 0 when there is nothing to package.
BEXO_EXPORT int plan_core_package(const char* productDir, CorePackagePlan* plan);

// Starts the packaging in a forked child whose id goes to *pid (0 when no
// child was started). 0, or -1 when fork failed. The caller reaps the child.
BEXO_EXPORT int fork_package_core_dump(const char* productDir, int* pid);

// Queues the notice when configured, then runs the script with the core
// directory, "core_", the dump directory and the package name: through the
// shell with `useShell`, else by replacing the process (returning only when
// that fails). Returns 0.
BEXO_EXPORT int package_core_dump(char* ini, char* script, char* corePath, char* dumpPath, char* packageName,
                                  bool useShell);

// 0 when `dir` holds a name containing "core_" or "bexotrace", else -1.
BEXO_EXPORT int check_corefile_existence(char* dir);

// True when `dir`/`name` (at most 255 characters) can be opened for reading.
BEXO_EXPORT bool file_exists(const char* dir, char* name);

// "dump_file_MMDDYYYYhhmm_NNNN" with the first counter not yet in `dumpDir`,
// cut to size - 1 characters. 0, or -1.
BEXO_EXPORT int compose_core_package_filename(const char* dumpDir, char* out, int size);

// The node's "tok_subject" (into `subject`, kNotificationSubjectSize bytes)
// and "tok_body" cut at every LF (appended to `body`; the piece after the last
// LF only when longer than one character). False, with `body` cleared, when
// the bundle, node or a key cannot be read.
BEXO_EXPORT bool getUTF8Notification(const char* node, char* subject, std::list<std::string>& body);

// Queues a mail with `subject` and one body line per entry to the configured
// recipients (empty items of "to_addr" skipped, others kept verbatim).
// Returns 0 whether or not the mail could be queued.
BEXO_EXPORT int sendNotification(const char* subject, std::list<std::string>& body, char* ini);

// The mail queue directory configured in `ini` ("mail_queue_path" of section
// "notification", product path "/etc/kvelo/mailq" by default).
BEXO_EXPORT void notification_queue_path(const char* ini, char* out, int size);
