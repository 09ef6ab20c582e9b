// Spool-side helpers on arbitrary paths: file name, lock path and the lock
// protocol itself, inside a private directory of the fuzzer's product root.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "mailqueue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string name(reinterpret_cast<const char*>(data), size);
  name = name.substr(0, strlen(name.c_str()));
  char* base = get_fn(&name[0]);
  if (base < name.c_str() || base > name.c_str() + name.size()) abort();
  // The lock calls work on a name inside one fixed directory.
  static const std::string dir = [] {
    const char* root = getenv("BEXO_ROOT");
    std::string d = std::string(root ? root : "/tmp") + "/fuzz-mailq";
    mkdir(d.c_str(), 0755);
    return d;
  }();
  std::string base_name = base;
  if (base_name.empty() || base_name == "." || base_name == ".." || base_name.size() > 200) return 0;
  std::string path = dir + "/" + base_name;
  if (mailqueue_lockfile(&path[0]) == 0) {
    if (mailqueue_islock(&path[0]) != 1) abort();
    if (mailqueue_unlockfile(&path[0]) != 0) abort();
  }
  if (base_name.compare(0, 5, "LOCK.") != 0 && mailqueue_islock(&path[0]) != 0) abort();
  return 0;
}
