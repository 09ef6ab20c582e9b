// IPCParser: reads the text body of an IPC request into a version, a message
// type and named fields. The grammar, every line ended by CR LF:
//
//   V1                 exactly this first line
//   <type>             any characters but CR LF, possibly none
//   <name>:<value>     any number of fields, split at the first colon;
//                      the value may hold further colons, nothing is trimmed
//
// Text after the last CR LF is ignored. A repeated name keeps its last value.
// A malformed message leaves `valid` false; fields read before the fault stay
// in the map, so callers check `valid` before using them. Parse does not clear
// what an earlier Parse of the same object stored.
//
// Thread safety: a value type; distinct objects may be used from any thread.
#pragma once

#include <iosfwd>
#include <map>
#include <string>

#include "bexo_export.h"

namespace BEXO {

class BEXO_EXPORT IPCParser {
 public:
  IPCParser();
  explicit IPCParser(std::string message);

  // Parses `message`; the result is also left in `valid`.
  bool Parse(std::string message);

  // When valid, writes "Version:<version>", "Type:<type>" and one
  // "<name>:<value>" line per field in name order to standard output, flushing
  // each line. Prints nothing for an invalid message.
  void Dump();
  // The same lines, to `out`.
  void Dump(std::ostream& out) const;

  bool valid;      // true only after a complete, well-formed parse
  int version;     // 1 once the version line was accepted, else 0
  std::string type;
  std::map<std::string, std::string> fields;  // byte-wise name order
};

}  // namespace BEXO
