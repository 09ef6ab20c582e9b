// bexo db testdb: test the database connection with "/etc/kvelo/bin/testdb.sh"
// and print its <connectdb> answer.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bexoservice.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo db testdb MODE [A B C]\n"
    "runs testdb.sh with MODE (1: no further arguments) and prints its <connectdb> answer;\n"
    "exit 1 when the script gave none (the generic error answer is printed)";

constexpr char kGenericAnswer[] = "<connectdb><error_msg>Generic error.</error_msg>";

int RunTestdb(int argc, char** argv) {
  if (argc < 2 || argc > 5) return CommandError(kExitUsage, kUsage);
  char* end = nullptr;
  const long mode = strtol(argv[1], &end, 10);
  if (*end != '\0' || end == argv[1] || mode < -1000000 || mode > 1000000) {
    return CommandError(kExitUsage, kUsage);
  }
  const char* a = argc > 2 ? argv[2] : "";
  const char* b = argc > 3 ? argv[3] : "";
  const char* c = argc > 4 ? argv[4] : "";
  static char answer[4096];
  call_testdb(answer, sizeof answer, static_cast<int>(mode), a, b, c);
  printf("%s\n", answer);
  return strncmp(answer, kGenericAnswer, strlen(kGenericAnswer)) == 0 ? kExitFailure : kExitOk;
}

}  // namespace

BEXO_COMMAND("db testdb", "test the database connection with testdb.sh", RunTestdb);
