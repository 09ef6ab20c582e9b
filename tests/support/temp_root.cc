#include "temp_root.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "product_path.h"

namespace bexo_test {

void TempRootTest::SetUp() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/bexo-test-XXXXXX";
  ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
  root_ = pattern;
  std::filesystem::create_directories(root_ + "/etc/kvelo");
  std::filesystem::create_directories(root_ + "/var/bexo");
  setenv("BEXO_ROOT", root_.c_str(), 1);
  bexo::ResetProductRootForTesting();
}

void TempRootTest::TearDown() {
  std::error_code ignored;
  if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void WriteScript(const std::string& path, const std::string& body) {
  WriteFile(path, "#!/bin/sh\n" + body);
  chmod(path.c_str(), 0755);
}

int RunCommand(const std::string& command, std::string* output) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char chunk[4096];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) text.append(chunk, n);
  int status = pclose(pipe);
  if (output) *output = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int RunBexo(const std::string& args, std::string* output, const std::string& env) {
  return RunCommand(env + (env.empty() ? "" : " ") + "exec " + BEXO_CLI_PATH + " " + args, output);
}

}  // namespace bexo_test
