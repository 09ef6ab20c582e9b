// Arbitrary command lines through the word splitting of the command runner:
// never more words than asked for, every word inside the line and
// terminated, and the same words however large the word limit beyond the count.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "process_spawn.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int max_words = data[0] % (bexo::kMaxCommandWords + 2);
  std::vector<char> line(reinterpret_cast<const char*>(data + 1), reinterpret_cast<const char*>(data + size));
  line.push_back('\0');
  std::vector<char> copy = line;
  std::vector<char*> words(bexo::kMaxCommandWords + 2, nullptr);
  const int n = bexo::SplitCommandWords(line.data(), words.data(), max_words);
  if (n < 0 || n > max_words) abort();
  const char* begin = line.data();
  const char* end = begin + line.size();
  for (int i = 0; i < n; ++i) {
    if (words[i] < begin || words[i] >= end) abort();
    if (memchr(words[i], '\0', end - words[i]) == nullptr) abort();
  }
  // A larger limit gives the same first words.
  std::vector<char*> more(bexo::kMaxCommandWords + 2, nullptr);
  const int m = bexo::SplitCommandWords(copy.data(), more.data(), bexo::kMaxCommandWords + 1);
  if (m < n) abort();
  for (int i = 0; i < n && i + 1 < m; ++i) {
    if (strcmp(words[i], more[i]) != 0) abort();
  }
  return 0;
}
