// Test support: a fresh product root (BEXO_ROOT) per test, and small file helpers.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace bexo_test {

// Gives each test its own temp dir as BEXO_ROOT, with "etc/kvelo" and
// "var/bexo" created, and removes it afterwards.
class TempRootTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The real location of a product path such as "/etc/kvelo/morvane.ini".
  std::string Path(const std::string& product_path) const { return root_ + product_path; }
  const std::string& root() const { return root_; }

 private:
  std::string root_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool FileExists(const std::string& path);
// Writes `body` after a "#!/bin/sh" line and makes the file executable.
void WriteScript(const std::string& path, const std::string& body);

// Runs a shell command, returning its exit status and (in `output`) its stdout.
int RunCommand(const std::string& command, std::string* output);

// Runs the bexo CLI with `args` (shell words; redirections and pipes allowed)
// and the variable assignments in `env`, as RunCommand does. The shell execs
// the CLI, so no shell stays around whose command line holds the arguments.
int RunBexo(const std::string& args, std::string* output, const std::string& env = "");

}  // namespace bexo_test
