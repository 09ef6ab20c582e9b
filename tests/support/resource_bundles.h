// Test support: the compiled resource bundles of the build tree
// (BEXO_RESOURCE_DIR), copied where the daemons look for them.
#pragma once

#include <string>

namespace bexo_test {

// Copies every compiled bundle into `root` + "/etc/kvelo/resource" and
// returns that directory (bundle paths are it + "/" + bundle name).
std::string InstallResourceBundles(const std::string& root);

}  // namespace bexo_test
