#include "CommonIPCClient.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "ipc/ipc_address.h"
#include "ipc/ipc_clock.h"
#include "ipc/ipc_iovec.h"

namespace BEXO {
namespace {

// Connecting: the last-wait value starts at the whole budget, so an error on
// the first attempt ends it at once; sleeps on a full backlog count towards it.
constexpr int kConnectBudgetSeconds = 30;
constexpr int kConnectGiveUpAbove = 29;

// Reading and writing wait in rounds under the silence budget of ipc_clock.h.
constexpr int kRoundSeconds = bexo::kIpcRoundSeconds;

}  // namespace

CommonIPCClient::CommonIPCClient() : sock_(-1), port_(0) {}

CommonIPCClient::~CommonIPCClient() { Disconnect(); }

void CommonIPCClient::SetupConnection(int port) { port_ = port; }

void CommonIPCClient::Disconnect() {
  if (sock_ > 0) {
    close(sock_);
    sock_ = -1;
  }
}

int CommonIPCClient::SetSocketUnblocked() {
  int status = fcntl(sock_, F_GETFL);
  int descriptor = status == -1 ? -1 : fcntl(sock_, F_GETFD);
  if (status == -1 || descriptor == -1 || fcntl(sock_, F_SETFL, status | O_NONBLOCK) == -1 ||
      fcntl(sock_, F_SETFD, descriptor | FD_CLOEXEC) == -1) {
    if (sock_ >= 0) close(sock_);
    sock_ = -1;
    return -1;
  }
  return sock_;
}

bool CommonIPCClient::AwaitConnected(int seconds) {
  pollfd ready{sock_, POLLOUT, 0};
  int result;
  do {
    result = poll(&ready, 1, bexo::IpcClientMillis(seconds));
  } while (result < 0 && errno == EINTR);
  if (result != 1) return false;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(sock_, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool CommonIPCClient::ConnectToServer() {
  Disconnect();
  // Created non-blocking and close-on-exec, as SetSocketUnblocked would make
  // it, without four more system calls per exchange.
  sock_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (sock_ == 0) {
    // Descriptor 0 reads as "not connected" everywhere in this class.
    int moved = fcntl(0, F_DUPFD_CLOEXEC, 1);
    close(0);
    sock_ = moved;
  }
  if (sock_ < 0) {
    sock_ = -1;
    return false;
  }
  // No SO_REUSEADDR: it has no effect on a Unix-domain socket.

  sockaddr_un address;
  socklen_t length = bexo::MakeIpcAddress(port_, &address);
  int elapsed = 0;
  int last_wait = kConnectBudgetSeconds;
  for (;;) {
    if (connect(sock_, reinterpret_cast<sockaddr*>(&address), length) == 0) {
      ReadInRounds();
      return true;
    }
    int error = errno;
    if (error == EAGAIN) {
      // The server's backlog is full: back off for 1 to 3 seconds.
      int wait = rand() % 3 + 1;
      bexo::IpcClientSleep(wait);
      last_wait = wait;
      elapsed += wait;
      if (elapsed > kConnectGiveUpAbove) break;
      continue;
    }
    if (error == EINPROGRESS) {
      if (AwaitConnected(kConnectBudgetSeconds - elapsed)) {
        ReadInRounds();
        return true;
      }
      last_wait = kConnectBudgetSeconds;
    }
    // Any other error costs the last wait: at once fatal on the first attempt,
    // retried straight away after backing off from a busy server.
    elapsed += last_wait;
    if (elapsed > kConnectGiveUpAbove) break;
  }
  Disconnect();
  return false;
}

// Once connected, reads block with the 5-second round as the socket's receive
// timeout: a read that times out is a silent round, exactly like a select()
// or poll() round that times out, and a reply wakes the reader straight in
// read() rather than in poll() and then read(), which costs microseconds per
// exchange. Writes stay non-blocking (MSG_DONTWAIT). If either step fails the
// socket simply stays non-blocking and reads wait in poll().
void CommonIPCClient::ReadInRounds() {
  timeval timeout = bexo::IpcRoundTimeout();
  if (setsockopt(sock_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) == 0) {
    fcntl(sock_, F_SETFL, 0);  // the socket was created with O_NONBLOCK as its only status flag
  }
}

bool CommonIPCClient::AwaitReady(short events, int* idle_seconds) {
  for (;;) {
    pollfd ready{sock_, events, 0};
    int result = poll(&ready, 1, bexo::IpcClientMillis(kRoundSeconds));
    if (result > 0) return true;
    if (result < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!bexo::IpcSilentRound(idle_seconds)) return false;
  }
}

ssize_t CommonIPCClient::WriteAll(iovec* parts, int count) {
  size_t total = 0;
  for (int i = 0; i < count; ++i) total += parts[i].iov_len;
  size_t written = 0;
  int idle_seconds = 0;
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  bool first = true;
  while (written < total) {
    // Anything readable before the request is complete means the server
    // closed or misbehaved. The first write goes out unchecked: a server
    // answering a connection it was handed microseconds ago races that write
    // anyway, and a peer that already hung up fails it with EPIPE.
    if (!first) {
      pollfd readable{sock_, POLLIN, 0};
      int polled = poll(&readable, 1, 0);
      if (polled < 0 && errno == EINTR) continue;
      if (polled != 0) break;
    }
    first = false;

    ssize_t sent = sendmsg(sock_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // The server has not yet drained what is queued: wait for room (or for
      // the readability that abandons the write) under the silence budget.
      if (!AwaitReady(POLLOUT | POLLIN, &idle_seconds)) break;
      continue;
    }
    if (sent <= 0) break;
    written += sent;
    bexo::SkipSentBytes(&message, sent);
  }
  if (written == total) return static_cast<ssize_t>(total);
  Disconnect();
  return -1;
}

int CommonIPCClient::WriteSock(char* buf, int len) {
  if (len < 1) return 0;
  iovec part{buf, static_cast<size_t>(len)};
  return static_cast<int>(WriteAll(&part, 1));
}

ssize_t CommonIPCClient::ReadSome(char* buf, size_t least, size_t most) {
  size_t got = 0;
  int idle_seconds = 0;
  while (got < least) {
    ssize_t count = read(sock_, buf + got, most - got);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      int flags = fcntl(sock_, F_GETFL);
      if (flags != -1 && (flags & O_NONBLOCK) != 0) {
        // A non-blocking socket: wait for data in poll() rounds.
        if (!AwaitReady(POLLIN, &idle_seconds)) break;
        continue;
      }
      // A blocking read that timed out: one silent round.
      if (flags == -1 || !bexo::IpcSilentRound(&idle_seconds)) break;
      continue;
    }
    if (count <= 0) break;
    got += count;
  }
  if (got >= least) return static_cast<ssize_t>(got);
  Disconnect();
  return -1;
}

int CommonIPCClient::ReadSock(char* buf, int len) {
  if (sock_ < 1) return -1;
  if (len < 1) return 0;
  return static_cast<int>(ReadSome(buf, static_cast<size_t>(len), static_cast<size_t>(len)));
}

bool CommonIPCClient::SendToServer(const char* data, const CommonIPCMsgHeader& hdr) {
  if (!ConnectToServer()) return false;
  if (hdr.length > 0 && data == nullptr) {
    Disconnect();
    return false;
  }
  // Header and body leave in one gather write: the same bytes on the wire,
  // one system call fewer.
  CommonIPCMsgHeader header = hdr;
  iovec parts[2] = {{&header, sizeof header}, {const_cast<char*>(data), hdr.length}};
  ssize_t expected = static_cast<ssize_t>(sizeof header + hdr.length);
  return WriteAll(parts, hdr.length > 0 ? 2 : 1) == expected;
}

bool CommonIPCClient::ReceiveFromServer(char** data, CommonIPCMsgHeader* hdr) {
  hdr->length = 0;
  if (sock_ < 1) return false;
  // The header read takes whatever else has arrived too (the server writes
  // header and body at once), which spares small replies a second read.
  char first[4096];
  ssize_t got = ReadSome(first, sizeof(CommonIPCMsgHeader), sizeof first);
  if (got < 0) return false;
  CommonIPCMsgHeader header;
  memcpy(&header, first, sizeof header);
  size_t length = header.length;
  if (length == SIZE_MAX) {  // length + 1 would wrap where size_t is 32 bits
    Disconnect();
    return false;
  }
  char* body = new (std::nothrow) char[length + 1];
  if (body == nullptr) {
    Disconnect();
    return false;
  }
  // Every byte before the terminator is overwritten by the reads, so only the
  // terminator needs zeroing; large buffers stay uncommitted until data arrives.
  size_t have = std::min(length, static_cast<size_t>(got) - sizeof header);
  memcpy(body, first + sizeof header, have);
  size_t rest = length - have;
  if (rest > 0 && ReadSome(body + have, rest, rest) != static_cast<ssize_t>(rest)) {
    delete[] body;
    return false;
  }
  body[length] = '\0';
  *data = body;
  hdr->length = header.length;
  Disconnect();
  return true;
}

}  // namespace BEXO
