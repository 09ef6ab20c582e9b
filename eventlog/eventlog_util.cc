#include "eventlog/eventlog_util.h"

#include <string.h>

namespace bexo_eventlog {

const char* ErrorText(int error) {
  // strerror_r's GNU form returns a static or thread-local message.
  static thread_local char scratch[128];
  const char* text = strerror_r(error, scratch, sizeof scratch);
  return text != nullptr && *text != '\0' ? text : "Unknown";
}

}  // namespace bexo_eventlog
