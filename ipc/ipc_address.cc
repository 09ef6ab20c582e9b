#include "ipc/ipc_address.h"

#include <stddef.h>
#include <string.h>

#include <string>

#include "bexo_util.h"
#include "product_path.h"

namespace bexo {
namespace {

constexpr char kPortPathFormat[] = "/var/bexo/port.%d";
constexpr size_t kPathLimit = 107;  // the path field holds 108 bytes, NUL last

static_assert(sizeof(sockaddr_un::sun_path) == kPathLimit + 1, "108-byte path field");

}  // namespace

socklen_t MakeIpcAddress(int port, sockaddr_un* address) {
  char name[64];
  bexo_snprintf(name, sizeof name, kPortPathFormat, port);
  std::string path = ProductPath(name);

  memset(address, 0, sizeof *address);
  address->sun_family = AF_UNIX;
  size_t length = path.size() < kPathLimit ? path.size() : kPathLimit;  // longer paths are cut
  memcpy(address->sun_path, path.data(), length);
  return static_cast<socklen_t>(length + offsetof(sockaddr_un, sun_path));
}

}  // namespace bexo
