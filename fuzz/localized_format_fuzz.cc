// Feeds arbitrary patterns and arguments to FormatLocalizedString: the first
// byte chooses the output size, the second the argument count; the rest is
// split at NUL bytes into the pattern and the arguments.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "BEXOLocalizedStaticStrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned int output_size = data[0];  // includes 0
  const unsigned int count = data[1] % 16;
  std::vector<std::string> parts;
  std::string rest(reinterpret_cast<const char*>(data + 2), size - 2);
  for (size_t from = 0;;) {
    size_t nul = rest.find('\0', from);
    parts.push_back(rest.substr(from, nul == std::string::npos ? nul : nul - from));
    if (nul == std::string::npos) break;
    from = nul + 1;
  }
  std::vector<const char*> arguments;
  for (unsigned int i = 0; i < count; ++i) {
    // Missing arguments and every third one are null.
    arguments.push_back(i + 1 < parts.size() && i % 3 != 2 ? parts[i + 1].c_str() : nullptr);
  }
  std::vector<char> output(output_size + 1, 'Z');
  int result = BEXOLocalizedStaticStrings::FormatLocalizedString(parts[0].c_str(), output.data(), output_size,
                                                                 count, arguments.data());
  if (output[output_size] != 'Z') abort();  // wrote past the size it was given
  if (output_size == 0) {
    if (result != -1) abort();
    return 0;
  }
  if (result != 0 || memchr(output.data(), '\0', output_size) == nullptr) abort();
  // Without arguments the pattern comes back as it is, cut to the output.
  if (count == 0 && strncmp(output.data(), parts[0].c_str(), output_size - 1) != 0) abort();
  return 0;
}
