#include "IPCParser.h"

#include <string.h>

#include <iostream>
#include <utility>

namespace BEXO {
namespace {

constexpr char kLineEnd[] = "\r\n";
constexpr size_t kLineEndSize = 2;

}  // namespace

IPCParser::IPCParser() : valid(false), version(0) {}

IPCParser::IPCParser(std::string message) : valid(false), version(0) { Parse(std::move(message)); }

bool IPCParser::Parse(std::string message) {
  valid = false;
  size_t line_end = message.find(kLineEnd);
  if (line_end == std::string::npos) return false;
  if (line_end != 2 || message[0] != 'V' || message[1] != '1') return false;
  version = 1;

  size_t start = line_end + kLineEndSize;
  line_end = message.find(kLineEnd, start);
  if (line_end == std::string::npos) return false;
  type.assign(message, start, line_end - start);

  for (;;) {
    start = line_end + kLineEndSize;
    line_end = message.find(kLineEnd, start);
    if (line_end == std::string::npos) break;  // an unterminated tail is ignored
    const char* line = message.data() + start;
    const char* colon = static_cast<const char*>(memchr(line, ':', line_end - start));
    if (colon == nullptr) return false;
    size_t name_size = colon - line;
    fields.insert_or_assign(std::string(line, name_size),
                            std::string(colon + 1, line_end - start - name_size - 1));
  }
  valid = true;
  return true;
}

void IPCParser::Dump(std::ostream& out) const {
  if (!valid) return;
  out << "Version:" << version << std::endl;
  out << "Type:" << type << std::endl;
  for (const auto& field : fields) out << field.first << ":" << field.second << std::endl;
}

void IPCParser::Dump() { static_cast<const IPCParser*>(this)->Dump(std::cout); }

}  // namespace BEXO
