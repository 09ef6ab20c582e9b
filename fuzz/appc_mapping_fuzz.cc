// Feeds arbitrary bytes to ProtocolMapping as the appcMapping.ini of a
// BEXO_HOME of its own, then checks that every answer is consistent.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ProtocolMapping.h"

namespace {

using BEXO::AppControl::ProtocolMapping;

const std::string& Home() {
  static std::string home = [] {
    // Under the run's product root when there is one, so it goes with it.
    const char* base = getenv("BEXO_ROOT");
    if (base == nullptr || *base == '\0') base = getenv("TMPDIR");
    std::string dir = std::string(base && *base ? base : "/tmp") + "/appc_mapping_fuzz." + std::to_string(getpid());
    mkdir(dir.c_str(), 0700);
    setenv("BEXO_HOME", dir.c_str(), 1);
    return dir;
  }();
  return home;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = Home() + "/appcMapping.ini";
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  fwrite(data, 1, size, file);
  fclose(file);

  ProtocolMapping mapping;
  if (!mapping.InitializeMappingTable()) abort();
  if (mapping.IsInterestedProtocol(0)) abort();  // 0 is never listed
  for (unsigned int id = 0; id < ProtocolMapping::kTableSize; ++id) {
    const std::string name = mapping.GetProtocolName(id);
    if (name.find('=') != std::string::npos) abort();  // the name stops at a further "="
    if (!mapping.IsInterestedProtocol(id) && (!name.empty() || (id > 0 && !mapping.GetCategoryName(id).empty()))) {
      abort();
    }
  }
  if (!mapping.GetProtocolName(ProtocolMapping::kTableSize).empty()) abort();
  unlink(path.c_str());
  return 0;
}
