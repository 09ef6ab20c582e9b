#include "proc_files.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <mutex>

namespace bexo {
namespace {

// The replaced root, or null for "/proc". Every root set is kept until the
// process ends, so a reader holding an older pointer stays valid.
std::atomic<const std::string*> g_test_root{nullptr};
std::mutex g_roots_mutex;
std::deque<std::string> g_roots;

}  // namespace

std::string ProcPath(const char* relative) {
  const std::string* root = g_test_root.load(std::memory_order_acquire);
  std::string path = root ? *root : std::string("/proc");
  path += '/';
  path += relative;
  return path;
}

ssize_t ReadProcFile(const char* relative, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) {
    errno = EINVAL;
    return -1;
  }
  buffer[0] = '\0';
  const int fd = open(ProcPath(relative).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1) return -1;
  size_t wanted = size - 1;
  if (wanted > kProcReadMax) wanted = kProcReadMax;
  ssize_t got;
  do {
    got = read(fd, buffer, wanted);
  } while (got == -1 && errno == EINTR);
  const int read_error = errno;
  close(fd);
  if (got == -1) {
    errno = read_error;
    return -1;
  }
  buffer[got] = '\0';
  return got;
}

FILE* OpenProcFile(const char* relative) { return fopen(ProcPath(relative).c_str(), "re"); }

int StatProcEntry(const char* relative, struct stat* st) {
  return stat(ProcPath(relative).c_str(), st);
}

DIR* OpenProcDirectory() {
  const std::string* root = g_test_root.load(std::memory_order_acquire);
  return opendir(root ? root->c_str() : "/proc");
}

void SetProcRootForTesting(const std::string& root) {
  std::lock_guard<std::mutex> guard(g_roots_mutex);
  const std::string* kept = nullptr;
  if (!root.empty()) {
    g_roots.push_back(root);
    kept = &g_roots.back();
  }
  g_test_root.store(kept, std::memory_order_release);
}

}  // namespace bexo
