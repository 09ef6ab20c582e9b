#include "product_path.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <mutex>

namespace bexo {
namespace {

std::mutex g_root_mutex;
std::string* g_root = nullptr;  // never freed: used until the process ends

std::string ReadRootFromEnvironment() {
  const char* env = getenv("BEXO_ROOT");
  std::string root = env ? env : "";
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  if (root == "/") root.clear();
  return root;
}

}  // namespace

const std::string& ProductRoot() {
  std::lock_guard<std::mutex> guard(g_root_mutex);
  if (g_root == nullptr) g_root = new std::string(ReadRootFromEnvironment());
  return *g_root;
}

std::string ProductPath(const std::string& path) {
  const std::string& root = ProductRoot();
  if (root.empty() || path.empty() || path[0] != '/') return path;
  if (path.compare(0, root.size(), root) == 0 &&
      (path.size() == root.size() || path[root.size()] == '/')) {
    return path;
  }
  return root + path;
}

int MakeParentDirectories(const std::string& path) {
  for (size_t pos = path.find('/', 1); pos != std::string::npos;
       pos = path.find('/', pos + 1)) {
    std::string dir = path.substr(0, pos);
    if (mkdir(dir.c_str(), 0775) != 0 && errno != EEXIST) return -1;
  }
  return 0;
}

void ResetProductRootForTesting() {
  std::lock_guard<std::mutex> guard(g_root_mutex);
  if (g_root == nullptr) g_root = new std::string;
  *g_root = ReadRootFromEnvironment();
}

}  // namespace bexo
