#include "product_path.h"

#include <stdlib.h>

#include <gtest/gtest.h>

namespace {

TEST(ProductPathTest, PrefixesAbsolutePathsOnce) {
  setenv("BEXO_ROOT", "/tmp/root//", 1);
  bexo::ResetProductRootForTesting();
  EXPECT_EQ(bexo::ProductRoot(), "/tmp/root");
  EXPECT_EQ(bexo::ProductPath("/etc/kvelo/morvane.ini"), "/tmp/root/etc/kvelo/morvane.ini");
  EXPECT_EQ(bexo::ProductPath("/tmp/root/var/bexo/x"), "/tmp/root/var/bexo/x");
  EXPECT_EQ(bexo::ProductPath("/tmp/rootless"), "/tmp/root/tmp/rootless");
  EXPECT_EQ(bexo::ProductPath("relative/file"), "relative/file");
  EXPECT_EQ(bexo::ProductPath(""), "");
}

TEST(ProductPathTest, UnsetRootLeavesPathsAsTheyAre) {
  unsetenv("BEXO_ROOT");
  bexo::ResetProductRootForTesting();
  EXPECT_EQ(bexo::ProductPath("/etc/kvelo/morvane.ini"), "/etc/kvelo/morvane.ini");
  setenv("BEXO_ROOT", "/", 1);
  bexo::ResetProductRootForTesting();
  EXPECT_EQ(bexo::ProductPath("/var/bexo/port.1"), "/var/bexo/port.1");
}

}  // namespace
