#include "CommonIPCMsgHeader.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace BEXO {

void PrintSocketError(const char* what) {
  int error = errno;
  char text[256];
  printf("%s : %d - %s\n", what, error, strerror_r(error, text, sizeof text));
}

}  // namespace BEXO
