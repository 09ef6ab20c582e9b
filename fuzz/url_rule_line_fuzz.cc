// Rule list files of arbitrary bytes: the reader and the rule-line parser
// never crash, and what a graph loads it writes and reads back unchanged.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "double_linked_graph.h"
#include "url_rule_serialization_device.h"

namespace {

std::string ReadAll(const char* path) {
  std::string text;
  FILE* fp = fopen(path, "r");
  if (fp == nullptr) return text;
  char chunk[4096];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, fp)) > 0) text.append(chunk, n);
  fclose(fp);
  return text;
}

const std::string& Dir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/bexo-fuzz-lines-XXXXXX";
    return std::string(mkdtemp(pattern));
  }();
  return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string in = Dir() + "/in", out = Dir() + "/out", again = Dir() + "/again";
  FILE* fp = fopen(in.c_str(), "w");
  fwrite(data, 1, size, fp);
  fclose(fp);

  url_rule_serialization_device device;
  device.deserialization(in.c_str(), false, true);
  device.serialization(out.c_str());

  double_linked_graph graph;
  graph.deserialization(in.c_str(), false, true);
  graph.serialization(out.c_str());
  double_linked_graph reread;
  reread.deserialization(out.c_str(), false, true);
  reread.serialization(again.c_str());
  if (graph.size() != reread.size() || ReadAll(out.c_str()) != ReadAll(again.c_str())) abort();
  return 0;
}
