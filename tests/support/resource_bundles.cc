#include "resource_bundles.h"

#include <filesystem>

namespace bexo_test {

std::string InstallResourceBundles(const std::string& root) {
  const std::string dir = root + "/etc/kvelo/resource";
  std::filesystem::create_directories(dir);
  std::filesystem::copy(BEXO_RESOURCE_DIR, dir,
                        std::filesystem::copy_options::recursive |
                            std::filesystem::copy_options::overwrite_existing);
  return dir;
}

}  // namespace bexo_test
