#include "unix_shims.h"

#include <errno.h>
#include <unistd.h>

int GetLastError() { return errno; }

int WSAGetLastError() { return errno; }

void Sleep(unsigned long milliseconds) { sleep(static_cast<unsigned>(milliseconds / 1000)); }
