// Reads one value through the installed library: proves headers, link and run.
#include <stdio.h>

#include "PrivateProfile.h"
#include "UxLog.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  char value[64];
  GetPrivateProfileString("Main", "Port", "none", value, sizeof value, argv[1]);
  printf("%s %d\n", value, UxLog::canLog(1) ? 1 : 0);
  return 0;
}
