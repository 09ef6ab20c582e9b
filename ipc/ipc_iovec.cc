#include "ipc/ipc_iovec.h"

#include <sys/uio.h>

namespace bexo {

void SkipSentBytes(msghdr* message, size_t sent) {
  while (message->msg_iovlen > 0) {
    iovec* part = message->msg_iov;
    size_t used = sent < part->iov_len ? sent : part->iov_len;
    part->iov_base = static_cast<char*>(part->iov_base) + used;
    part->iov_len -= used;
    sent -= used;
    if (part->iov_len > 0) return;
    ++message->msg_iov;
    --message->msg_iovlen;
  }
}

}  // namespace bexo
