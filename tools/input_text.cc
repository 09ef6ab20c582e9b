#include "input_text.h"

#include <stdio.h>
#include <string.h>

bool ReadInputText(const char* path, std::string* out) {
  bool from_stdin = strcmp(path, "-") == 0;
  FILE* in = from_stdin ? stdin : fopen(path, "rbe");
  if (in == nullptr) return false;
  out->clear();
  char chunk[65536];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, in)) > 0) out->append(chunk, n);
  bool ok = ferror(in) == 0;
  if (!from_stdin) fclose(in);
  return ok;
}
