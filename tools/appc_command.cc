// bexo appc: the application-control protocol table of appcMapping.ini.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "ProtocolMapping.h"
#include "command.h"

namespace {

using BEXO::AppControl::ProtocolMapping;

constexpr char kUsage[] =
    "usage: bexo appc show ID...   print the identifiers' entries\n"
    "       bexo appc list         print every identifier listed in the file\n"
    "Each line: identifier, name, category and the identifier it is counted as\n"
    "(unclassified ones fold into 4), separated by tabs. The file is\n"
    "$BEXO_HOME/appcMapping.ini, else /etc/kvelo/appcMapping.ini.";

int Usage() { return CommandError(kExitUsage, kUsage); }

void PrintEntry(const ProtocolMapping& mapping, unsigned int id) {
  printf("%u\t%s\t%s\t%u\n", id, mapping.GetProtocolName(id).c_str(), mapping.GetCategoryName(id).c_str(),
         ProtocolMapping::TransformProtocolID(id));
}

int RunAppc(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string verb = argv[1];
  if (verb != "show" && verb != "list") return Usage();
  if ((verb == "list") != (argc == 2)) return Usage();
  ProtocolMapping mapping;  // its own load reports nothing: load again to learn the outcome
  if (!mapping.InitializeMappingTable()) {
    return CommandError(kExitFailure, "cannot read " + ProtocolMapping::GetHomeDirectory() + "/appcMapping.ini");
  }
  if (verb == "list") {
    for (unsigned int id = 0; id < ProtocolMapping::kTableSize; ++id) {
      if (mapping.IsInterestedProtocol(id)) PrintEntry(mapping, id);
    }
    return kExitOk;
  }
  int result = kExitOk;
  for (int i = 2; i < argc; ++i) {
    char* end = nullptr;
    errno = 0;
    const unsigned long id = strtoul(argv[i], &end, 10);
    if (*argv[i] < '0' || *argv[i] > '9' || *end != '\0' || errno == ERANGE || id > 0xffffffffUL) {
      return CommandError(kExitUsage, std::string("not an identifier: ") + argv[i]);
    }
    PrintEntry(mapping, static_cast<unsigned int>(id));
    if (id >= ProtocolMapping::kTableSize || !mapping.IsInterestedProtocol(static_cast<unsigned int>(id))) {
      result = kExitFailure;  // shown, but not listed in the file
    }
  }
  return result;
}

}  // namespace

BEXO_COMMAND("appc", "application-control protocol table (show, list)", RunAppc);
