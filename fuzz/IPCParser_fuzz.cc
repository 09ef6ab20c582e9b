// IPCParser on arbitrary bodies: no crash, and a valid parse survives being
// written back in the grammar and parsed again.
#include <stdint.h>
#include <stdlib.h>

#include <sstream>
#include <string>

#include "IPCParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string message(reinterpret_cast<const char*>(data), size);
  BEXO::IPCParser parser(message);
  std::ostringstream dump;
  parser.Dump(dump);
  if (!parser.valid) {
    if (!dump.str().empty()) abort();
    return 0;
  }
  if (parser.version != 1 || message.compare(0, 4, "V1\r\n") != 0) abort();

  std::string rewritten = "V1\r\n" + parser.type + "\r\n";
  for (const auto& field : parser.fields) {
    if (field.first.find(':') != std::string::npos) abort();
    rewritten += field.first + ":" + field.second + "\r\n";
  }
  BEXO::IPCParser again(rewritten);
  if (!again.valid || again.type != parser.type || again.fields != parser.fields) abort();
  return 0;
}
