// CommonIPCServer: the serving side of the daemons' request/reply messaging.
// The server binds the Unix-domain socket named after its port
// ("/var/bexo/port.<port>" under the product root, mode 0666 so daemons of
// other users can connect) and runs one listener thread. Each accepted
// connection is served on a detached thread of its own by a per-connection
// copy of the server: it reads one request frame, calls the handler with the
// request text (cut at its first NUL byte) and writes the handler's result
// back (likewise cut at its first NUL), then closes the connection.
//
//   std::string Answer(std::string request) { return ...; }
//   BEXO::CommonIPCServer server(port);
//   server.SetHandler(Answer);
//   server.StartListening();
//   ...
//   server.StopListening();  // also done by the destructor
//
// The server trusts the client: it allocates the length a header announces
// (memory is committed only as bytes arrive) and reads without a timeout, so a
// client that stalls mid-request holds its own serving thread and nothing
// else. The reply write gives up after 95 seconds of silence, as the client's
// read does. At most SetServingThreadLimit() connections are served at once;
// more are closed at once. A handler that throws is answered with an empty
// reply.
//
// Thread safety: the handler is called from several serving threads at once
// and must be safe for that. StopListening may be called from any thread;
// the other operations of the listening object belong to its owner. SIGINT
// and SIGTERM are blocked on the listener thread for its whole life, so
// serving threads start with them blocked and the daemon's other threads
// receive them.
#pragma once

#include <pthread.h>
#include <sys/select.h>

#include <atomic>
#include <memory>
#include <string>

#include "CommonIPCMsgHeader.h"
#include "bexo_export.h"

namespace BEXO {

class BEXO_EXPORT CommonIPCServer {
 public:
  using Handler = std::string (*)(std::string);

  explicit CommonIPCServer(int port);
  // The per-connection copy: takes the source's client socket and handler.
  CommonIPCServer(const CommonIPCServer& source);
  CommonIPCServer& operator=(const CommonIPCServer&) = delete;
  // The listening object stops its listener and closes its listening socket;
  // a per-connection copy closes its client socket if still open.
  ~CommonIPCServer();

  // Must be called before StartListening.
  void SetHandler(Handler handler);

  // The most connections served at once (default kDefaultServingThreadLimit,
  // at least 1); the listener closes further ones at once. Before StartListening.
  static constexpr int kDefaultServingThreadLimit = 128;
  void SetServingThreadLimit(int limit);

  // Creates, binds (replacing a stale socket file) and listens on a new
  // socket for the port. Returns it, or -1 with errno set. The caller owns it.
  int CreateSocket();

  // Creates the listening socket and starts the listener thread. False when
  // the socket could not be created or this object is already listening.
  bool StartListening();

  // Sets the stop flag and joins the listener thread, which sees the flag
  // within about a second. The listening socket stays open (see CloseSocket).
  void StopListening();

  // The listener loop; returns 0 when the stop flag is seen. A connection
  // whose serving thread cannot be started is closed and logged, and the
  // listener goes on. It waits in accept()
  // itself, with a one-second receive timeout on the listening socket as the
  // round in which it looks at the stop flag: one system call per connection
  // instead of select() and accept(). A connection that cannot be accepted is
  // skipped rather than handed to a serving thread with no socket.
  int Listening();

  // select() for reading on the listening socket; `seconds` 0 waits forever.
  // With EventFromClient, for callers that run a loop of their own.
  int ReceiveWaitFromClient(fd_set* set, long seconds);

  // If the listening socket is in `set`, removes it, accepts the connection as
  // the client socket (-1 when accept failed) and returns true.
  bool EventFromClient(fd_set* set);

  // Reads one request frame from the client socket, blocking without a
  // timeout. `*data` receives the body followed by a NUL (release with free).
  bool ReceiveFromClient(char** data, CommonIPCMsgHeader* hdr);

  // Writes one reply frame and closes the client socket, whatever the outcome.
  // Gives up after 95 seconds of silence (a client that does not read).
  bool SendToClient(const char* data, const CommonIPCMsgHeader& hdr);

  // Serves the client socket's connection and then deletes this object,
  // which must therefore come from new (the listener's copies do). The
  // request is read as ReceiveFromClient reads it, but one of up to 1 MiB
  // goes straight into the string handed to the handler rather than into a
  // buffer that is then copied.
  void Process();

  void DisconnectClient();  // closes the client socket if open
  void CloseSocket();       // closes the listening socket if open

  // Block / unblock SIGINT and SIGTERM for the calling thread.
  void DisableSignal();
  void EnableSignal();

 private:
  bool RestoreListeningSocket(bool report);

  int port_;
  int listen_socket_;          // -1 when none
  int client_socket_;          // -1 when none; used by per-connection copies
  pthread_t listener_thread_;  // 0 when none
  Handler handler_;
  pthread_mutex_t stop_mutex_;  // guards stop_
  bool stop_;
  bool copy_;  // a per-connection copy never stops the listener
  int serving_limit_;
  std::shared_ptr<std::atomic<int>> serving_;  // connections being served; shared with the copies
  bool counted_;  // a copy the listener counted in serving_
};

// pthread entry points: the listener loop, and serving one connection.
BEXO_EXPORT void* ThreadListening(void* server);
BEXO_EXPORT void* ThreadProcess(void* copy);

}  // namespace BEXO
