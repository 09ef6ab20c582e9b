// bexo core: look for a crashed daemon's core files and package them the way
// a restarting daemon does, in the foreground.
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "PackageCoreDump.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo core check DIR              exit 0 when DIR holds core files (core_*, bexotrace*)\n"
    "       bexo core package PRODUCT_DIR    package them with PRODUCT_DIR/PackageCore.sh as configured\n"
    "                                        in PRODUCT_DIR/morvane.ini; print the package and the notice";

int CountFiles(const char* dir) {
  int count = 0;
  DIR* d = opendir(dir);
  if (d == nullptr) return 0;
  while (dirent* e = readdir(d)) count += e->d_name[0] != '.';
  closedir(d);
  return count;
}

int Package(const char* product_dir) {
  CorePackagePlan plan;
  if (plan_core_package(product_dir, &plan) != 1) {
    printf("no core files\n");
    return kExitFailure;
  }
  char queue[1024];
  notification_queue_path(plan.ini, queue, sizeof queue);
  int queued_before = CountFiles(queue);
  package_core_dump(plan.ini, plan.script, plan.core_path, plan.dump_path, plan.package_name, true);
  std::string package = std::string(plan.dump_path) + "/" + plan.package_name;
  bool made = access(package.c_str(), F_OK) == 0;
  printf("package: %s%s\n", package.c_str(), made ? "" : " (not created)");
  printf("notice: %s\n", CountFiles(queue) > queued_before ? "queued" : "not queued");
  return made ? kExitOk : kExitFailure;
}

int RunCore(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[1], "check") == 0) {
    bool found = check_corefile_existence(argv[2]) == 0;
    printf("%s\n", found ? "core files found" : "no core files");
    return found ? kExitOk : kExitFailure;
  }
  if (argc == 3 && strcmp(argv[1], "package") == 0) return Package(argv[2]);
  return CommandError(kExitUsage, kUsage);
}

}  // namespace

BEXO_COMMAND("core", "find and package a crashed daemon's core files (check, package)", RunCore);
