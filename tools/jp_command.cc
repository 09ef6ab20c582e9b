// bexo jp: detect and convert the Japanese encoding of a text.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "command.h"
#include "input_text.h"
#include "mail_cnvt.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo jp detect FILE|-                              print the encoding code and name\n"
    "       bexo jp convert --to jis|sjis|euc|mime|ascii FILE|-  convert to that encoding\n"
    "  (ascii replaces Japanese characters with \"?\"; JP_FUNC=no switches conversion off)";

constexpr const char* kNames[] = {"none", "ISO-2022-JP", "Shift_JIS", "EUC-JP", "MIME"};
constexpr const char* kTargets[] = {"", "jis", "sjis", "euc", "mime", "ascii"};

int Usage() { return CommandError(kExitUsage, kUsage); }

int RunJp(int argc, char** argv) {
  std::string text;
  const char* input = argv[argc - 1];
  if (argc == 3 && strcmp(argv[1], "detect") == 0) {
    if (!ReadInputText(input, &text)) return CommandError(kExitFailure, std::string("cannot read ") + input);
    int code = AutoDetect(text.c_str());
    printf("%d %s\n", code, kNames[code]);
    return kExitOk;
  }
  if (argc != 5 || strcmp(argv[1], "convert") != 0 || strcmp(argv[2], "--to") != 0) return Usage();
  int target = 0;
  for (int i = 1; i <= 5; ++i) {
    if (strcmp(argv[3], kTargets[i]) == 0) target = i;
  }
  if (target == 0) return Usage();
  if (!ReadInputText(input, &text)) return CommandError(kExitFailure, std::string("cannot read ") + input);
  char* out = fromANY(&text[0], target);
  if (out == nullptr) return CommandError(kExitFailure, "the text does not convert (a broken encoded word?)");
  fputs(out, stdout);
  free(out);
  return kExitOk;
}

}  // namespace

BEXO_COMMAND("jp", "detect and convert Japanese text encodings (detect, convert)", RunJp);
