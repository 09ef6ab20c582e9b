// Rule list files of arbitrary bytes: the reader and the rule-line parser
// never crash, and what a graph loads it writes and reads back unchanged.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
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

// The files live in memory (memfd), named through /proc/self/fd, so a run
// leaves nothing behind in /tmp, however it ends.
std::string MemoryFile(const char* name) {
  int fd = memfd_create(name, MFD_CLOEXEC);
  if (fd < 0) abort();
  return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string in = MemoryFile("in"), out = MemoryFile("out"), again = MemoryFile("again");
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
