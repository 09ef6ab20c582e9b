// Reads one value through the installed library: proves headers, link and run.
#include <stdio.h>
#include <sys/types.h>
#include <time.h>

#include "PrivateProfile.h"
#include "UxLog.h"

// The package hands its consumers the library's 64-bit time and file offsets,
// also on 32-bit x86.
static_assert(sizeof(time_t) == 8, "time_t as in the library");
static_assert(sizeof(off_t) == 8, "off_t as in the library");

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  char value[64];
  GetPrivateProfileString("Main", "Port", "none", value, sizeof value, argv[1]);
  printf("%s %d\n", value, UxLog::canLog(1) ? 1 : 0);
  return 0;
}
