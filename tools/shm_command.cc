// bexo shm: inspect and remove the POSIX shared-memory objects that daemons
// share through BEXOSharedMemory. Inspection opens the object read-only
// rather than through BEXOSharedMemory, which would create a missing object
// and resize an existing one.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo shm info NAME [BYTES]   print the size and the first BYTES bytes (default 64)\n"
    "       bexo shm remove NAME         remove the name; mappings stay valid until unmapped\n"
    "NAME is the name given to BEXOSharedMemory, without the leading \"/\".";

constexpr size_t kMaxDump = 1 << 20;

int Usage() { return CommandError(kExitUsage, kUsage); }

std::string ObjectName(const char* name) { return std::string("/") + name; }

// hexdump -C layout: offset, 16 bytes in two groups of 8, printable text.
void Dump(const unsigned char* bytes, size_t length) {
  for (size_t line = 0; line < length; line += 16) {
    printf("%08zx ", line);
    for (size_t i = line; i < line + 16; ++i) {
      if (i % 8 == 0) printf(" ");
      if (i < length) {
        printf("%02x ", bytes[i]);
      } else {
        printf("   ");
      }
    }
    printf(" |");
    for (size_t i = line; i < line + 16 && i < length; ++i) {
      putchar(bytes[i] >= 0x20 && bytes[i] < 0x7f ? bytes[i] : '.');
    }
    printf("|\n");
  }
}

int Info(const char* name, size_t wanted) {
  const std::string object = ObjectName(name);
  int fd = shm_open(object.c_str(), O_RDONLY, 0);
  if (fd == -1) {
    int error = errno;
    return CommandError(kExitFailure, "cannot open " + object + ": " + strerror(error));
  }
  struct stat st;
  if (fstat(fd, &st) != 0) {
    int error = errno;
    close(fd);
    return CommandError(kExitFailure, "cannot stat " + object + ": " + strerror(error));
  }
  const size_t size = static_cast<size_t>(st.st_size);
  const size_t shown = wanted < size ? wanted : size;
  printf("name: %s\nsize: %zu bytes\nmode: %04o\n", object.c_str(), size,
         static_cast<unsigned>(st.st_mode & 07777));
  if (shown > 0) {
    void* map = mmap(nullptr, shown, PROT_READ, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) {
      int error = errno;
      close(fd);
      return CommandError(kExitFailure, "cannot map " + object + ": " + strerror(error));
    }
    printf("first %zu bytes:\n", shown);
    Dump(static_cast<const unsigned char*>(map), shown);
    munmap(map, shown);
  }
  close(fd);
  return kExitOk;
}

int Remove(const char* name) {
  const std::string object = ObjectName(name);
  if (shm_unlink(object.c_str()) != 0) {
    int error = errno;
    return CommandError(kExitFailure, "cannot remove " + object + ": " + strerror(error));
  }
  return kExitOk;
}

int RunShm(int argc, char** argv) {
  if (argc < 3) return Usage();
  const std::string verb = argv[1];
  if (verb == "info" && (argc == 3 || argc == 4)) {
    size_t bytes = 64;
    if (argc == 4) {
      long long value = 0;
      if (argv[3][0] == '-' || !ParseWholeNumber(argv[3], 0, kMaxDump, &value)) {
        return CommandError(kExitUsage, "BYTES must be a number from 0 to 1048576");
      }
      bytes = static_cast<size_t>(value);
    }
    return Info(argv[2], bytes);
  }
  if (verb == "remove" && argc == 3) return Remove(argv[2]);
  return Usage();
}

}  // namespace

BEXO_COMMAND("shm", "inspect and remove shared-memory segments (info, remove)", RunShm);
