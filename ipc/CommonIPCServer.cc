#include "CommonIPCServer.h"

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <new>

#include "UxLog.h"
#include "ipc/ipc_address.h"
#include "ipc/ipc_clock.h"
#include "ipc/ipc_iovec.h"
#include "product_path.h"

namespace BEXO {
namespace {

constexpr int kBacklog = 5;
constexpr long kListenRoundSeconds = 1;  // how soon the listener sees the stop flag
constexpr size_t kDirectRequestBytes = 1 << 20;
constexpr char kLogFile[] = "CommonIPCServer.cpp";

static_assert(sizeof(sockaddr_un) == 110, "accept() address buffer of 110 bytes");

// Reads at least `least` and at most `most` bytes, blocking; returns the
// count, or -1 on end of file or error first.
ssize_t ReadAtLeast(int fd, char* buffer, size_t least, size_t most) {
  size_t got = 0;
  while (got < least) {
    ssize_t count = read(fd, buffer + got, most - got);
    if (count < 0 && errno == EINTR) continue;
    if (count < 1) return -1;
    got += count;
  }
  return static_cast<ssize_t>(got);
}

// Reads one request frame from `fd`: the header into `*hdr`, the body into
// the length + 1 bytes that `reserve(length)` returns (null when there is no
// memory), followed by a NUL. The header read takes whatever else has arrived
// too, which spares small requests a second read; bytes beyond the frame are
// dropped. False on end of file, error or no memory; whatever `reserve`
// handed out is the caller's to release.
template <typename Reserve>
bool ReadRequest(int fd, CommonIPCMsgHeader* hdr, Reserve reserve) {
  char first[4096];
  ssize_t got = ReadAtLeast(fd, first, sizeof(CommonIPCMsgHeader), sizeof first);
  if (got < 0) return false;
  memcpy(hdr, first, sizeof *hdr);
  size_t length = hdr->length;
  if (length == SIZE_MAX) return false;  // length + 1 would wrap where size_t is 32 bits
  char* body = reserve(length);
  if (body == nullptr) return false;
  size_t have = std::min(length, static_cast<size_t>(got) - sizeof *hdr);
  memcpy(body, first + sizeof *hdr, have);
  size_t rest = length - have;
  if (rest > 0 && ReadAtLeast(fd, body + have, rest, rest) < 0) return false;
  body[length] = '\0';
  return true;
}

// Writes every byte of `parts`, blocking in rounds (the socket's send
// timeout) under the same silence budget as the client's read, so a client
// that never reads its reply cannot hold the serving thread for good. False
// when a write fails or the budget is spent. MSG_NOSIGNAL: a client that hung
// up must not raise SIGPIPE in the daemon.
bool WriteFully(int fd, iovec* parts, int count) {
  timeval round = bexo::IpcRoundTimeout();
  if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &round, sizeof round) != 0) return false;
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  int idle_seconds = 0;
  while (message.msg_iovlen > 0) {
    ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (!bexo::IpcSilentRound(&idle_seconds)) return false;
      continue;
    }
    if (sent < 1) return false;
    bexo::SkipSentBytes(&message, sent);
  }
  return true;
}

// Accept waits at most one listener round, so that the stop flag is seen
// within about a second.
bool AcceptInRounds(int fd) {
  timeval round{kListenRoundSeconds, 0};
  return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &round, sizeof round) == 0;
}

void SetSignalsBlocked(bool blocked) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace

CommonIPCServer::CommonIPCServer(int port)
    : port_(port),
      listen_socket_(-1),
      client_socket_(-1),
      listener_thread_(0),
      handler_(nullptr),
      stop_(false),
      copy_(false),
      serving_limit_(kDefaultServingThreadLimit),
      serving_(std::make_shared<std::atomic<int>>(0)),
      counted_(false) {
  pthread_mutex_init(&stop_mutex_, nullptr);
}

CommonIPCServer::CommonIPCServer(const CommonIPCServer& source)
    : port_(source.port_),
      listen_socket_(-1),
      client_socket_(source.client_socket_),
      listener_thread_(0),
      handler_(source.handler_),
      stop_(false),
      copy_(true),
      serving_limit_(source.serving_limit_),
      serving_(source.serving_),
      counted_(false) {
  pthread_mutex_init(&stop_mutex_, nullptr);
}

CommonIPCServer::~CommonIPCServer() {
  if (copy_) {
    DisconnectClient();
    if (counted_) serving_->fetch_sub(1, std::memory_order_relaxed);
  } else {
    StopListening();
    CloseSocket();
  }
  pthread_mutex_destroy(&stop_mutex_);
}

void CommonIPCServer::SetHandler(Handler handler) { handler_ = handler; }

void CommonIPCServer::SetServingThreadLimit(int limit) { serving_limit_ = limit > 0 ? limit : 1; }

int CommonIPCServer::CreateSocket() {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (fd >= FD_SETSIZE) {
    // The listener waits with select(), whose sets cannot hold this descriptor.
    close(fd);
    errno = EMFILE;
    return -1;
  }
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);

  sockaddr_un address;
  socklen_t length = bexo::MakeIpcAddress(port_, &address);
  bexo::MakeParentDirectories(address.sun_path);
  unlink(address.sun_path);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      chmod(address.sun_path, 0666) != 0 || listen(fd, kBacklog) != 0) {
    int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

bool CommonIPCServer::StartListening() {
  if (listener_thread_ != 0) return false;
  int fd = CreateSocket();
  if (fd < 0) return false;
  CloseSocket();
  listen_socket_ = fd;
  if (pthread_create(&listener_thread_, nullptr, ThreadListening, this) != 0) {
    listener_thread_ = 0;
  }
  return true;
}

void CommonIPCServer::StopListening() {
  pthread_mutex_lock(&stop_mutex_);
  stop_ = true;
  pthread_mutex_unlock(&stop_mutex_);
  if (listener_thread_ != 0) {
    pthread_join(listener_thread_, nullptr);
    listener_thread_ = 0;
  }
}

int CommonIPCServer::ReceiveWaitFromClient(fd_set* set, long seconds) {
  timeval timeout{seconds, 0};
  return select(listen_socket_ + 1, set, nullptr, nullptr, seconds == 0 ? nullptr : &timeout);
}

bool CommonIPCServer::EventFromClient(fd_set* set) {
  if (listen_socket_ < 0 || !FD_ISSET(listen_socket_, set)) return false;
  FD_CLR(listen_socket_, set);
  sockaddr_un peer;
  socklen_t size = sizeof peer;
  client_socket_ = accept4(listen_socket_, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
  if (client_socket_ < 0) client_socket_ = -1;
  return true;
}

// Replaces a listening socket that failed (or could not be made) with a new
// one. A failure is reported once, when `report` says the previous socket was
// working; the listener retries every round.
bool CommonIPCServer::RestoreListeningSocket(bool report) {
  CloseSocket();
  int fd = CreateSocket();
  if (fd >= 0 && !AcceptInRounds(fd)) {
    int error = errno;
    close(fd);
    errno = error;
    fd = -1;
  }
  int error = errno;
  listen_socket_ = fd;
  if (fd < 0 && report) {
    char text[256];
    UX_LOG(1, kLogFile, "Listening", "ERROR: cannot listen on IPC port %d again: %s", port_,
           strerror_r(error, text, sizeof text));
  }
  return fd >= 0;
}

// The listener waits in accept() itself, with the socket's receive timeout
// as the one-second round: the same rounds as a select() with a one-second
// timeout followed by accept(), one system call per connection fewer.
int CommonIPCServer::Listening() {
  pthread_attr_t detached;
  pthread_attr_init(&detached);
  pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
  // Blocked once for the listener's whole life rather than around every
  // round: the stop signals are never delivered to this thread either way,
  // and every serving thread starts with them blocked.
  DisableSignal();
  bool working = listen_socket_ >= 0 && AcceptInRounds(listen_socket_);
  bool refusing = false;  // whether the last connection met the thread limit
  for (;;) {
    pthread_mutex_lock(&stop_mutex_);
    bool stop = stop_;
    pthread_mutex_unlock(&stop_mutex_);
    if (stop) break;

    if (!working) {
      // No socket to wait on: sit out one round, then try a new one.
      fd_set none;
      FD_ZERO(&none);
      CloseSocket();
      ReceiveWaitFromClient(&none, kListenRoundSeconds);
      working = RestoreListeningSocket(false);
      continue;
    }
    sockaddr_un peer;
    socklen_t size = sizeof peer;
    int fd = accept4(listen_socket_, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
    if (fd < 0) {
      // A quiet round, a signal, or one connection that could not be taken
      // (it would only have failed its serving thread's first read). Only a
      // socket that no longer listens is replaced.
      int error = errno;
      if (error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP) {
        working = RestoreListeningSocket(true);
      }
      continue;
    }
    int serving = serving_->load(std::memory_order_relaxed);
    if (serving >= serving_limit_) {
      // Refused at once: the client reads the end of the stream.
      close(fd);
      if (!refusing) {
        UX_LOG(1, kLogFile, "Listening",
               "WARNING: IPC port %d refuses connections: %d serving threads, the limit", port_,
               serving);
      }
      UX_LOG(3, kLogFile, "Listening", "IPC port %d refused a connection", port_);
      refusing = true;
      continue;
    }
    refusing = false;
    CommonIPCServer* copy = new (std::nothrow) CommonIPCServer(*this);
    if (copy == nullptr) {
      close(fd);
      continue;
    }
    copy->client_socket_ = fd;  // the copy owns the connection
    copy->counted_ = true;
    serving_->fetch_add(1, std::memory_order_relaxed);
    pthread_t thread;
    int error = pthread_create(&thread, &detached, ThreadProcess, copy);
    if (error != 0) {
      // Only this connection is lost; the listener goes on.
      delete copy;  // closes its connection
      char text[256];
      UX_LOG(1, kLogFile, "Listening", "ERROR: IPC port %d cannot start a serving thread: %s",
             port_, strerror_r(error, text, sizeof text));
    }
  }
  pthread_attr_destroy(&detached);
  return 0;
}

bool CommonIPCServer::ReceiveFromClient(char** data, CommonIPCMsgHeader* hdr) {
  char* body = nullptr;
  // The announced length is trusted; malloc only reserves address space for
  // a large body, and pages are committed as the bytes arrive.
  auto reserve = [&body](size_t length) { return body = static_cast<char*>(malloc(length + 1)); };
  if (!ReadRequest(client_socket_, hdr, reserve)) {
    free(body);
    return false;
  }
  *data = body;
  return true;
}

bool CommonIPCServer::SendToClient(const char* data, const CommonIPCMsgHeader& hdr) {
  bool sent = false;
  if (hdr.length == 0 || data != nullptr) {
    CommonIPCMsgHeader header = hdr;
    iovec parts[2] = {{&header, sizeof header}, {const_cast<char*>(data), hdr.length}};
    sent = WriteFully(client_socket_, parts, hdr.length > 0 ? 2 : 1);
  }
  DisconnectClient();
  return sent;
}

// Requests up to kDirectRequestBytes are read straight into the string the
// handler takes instead of a malloc'd buffer that is then copied. Larger ones
// keep the buffer: a string would zero-fill whatever length a header
// announces, where malloc commits pages only as the bytes arrive.
void CommonIPCServer::Process() {
  std::string request;
  char* large = nullptr;
  auto reserve = [&request, &large](size_t length) -> char* {
    if (length > kDirectRequestBytes) return large = static_cast<char*>(malloc(length + 1));
    try {
      request.resize(length);
    } catch (const std::exception&) {
      return nullptr;
    }
    return &request[0];
  };
  CommonIPCMsgHeader header;
  if (!ReadRequest(client_socket_, &header, reserve)) {
    free(large);
    DisconnectClient();
    delete this;
    return;
  }
  std::string reply;
  if (handler_ != nullptr) {
    try {
      // The handler sees the request as a C string: up to its first NUL.
      if (large != nullptr) {
        request.assign(large);
      } else {
        request.resize(strlen(request.c_str()));
      }
      reply = handler_(std::move(request));
    } catch (const std::exception& error) {
      reply.clear();
      UX_LOG(1, kLogFile, "Process", "ERROR: IPC handler on port %d failed: %s", port_, error.what());
    } catch (...) {
      reply.clear();
      UX_LOG(1, kLogFile, "Process", "ERROR: IPC handler on port %d failed", port_);
    }
  }
  free(large);
  size_t length = strlen(reply.c_str());
  CommonIPCMsgHeader answer;
  answer.length = length < UINT32_MAX ? static_cast<uint32_t>(length) : UINT32_MAX;
  SendToClient(reply.data(), answer);
  delete this;
}

void CommonIPCServer::DisconnectClient() {
  if (client_socket_ != -1) {
    close(client_socket_);
    client_socket_ = -1;
  }
}

void CommonIPCServer::CloseSocket() {
  if (listen_socket_ != -1) {
    close(listen_socket_);
    listen_socket_ = -1;
  }
}

void CommonIPCServer::DisableSignal() { SetSignalsBlocked(true); }

void CommonIPCServer::EnableSignal() { SetSignalsBlocked(false); }

void* ThreadListening(void* server) {
  if (server != nullptr) static_cast<CommonIPCServer*>(server)->Listening();
  return nullptr;
}

void* ThreadProcess(void* copy) {
  if (copy != nullptr) static_cast<CommonIPCServer*>(copy)->Process();
  return nullptr;
}

}  // namespace BEXO
