// CommonIPCClient: the asking side of the daemons' request/reply messaging.
// One object carries one exchange: SendToServer connects to the socket named
// after the port ("/var/bexo/port.<port>" under the product root) and writes
// one frame; ReceiveFromServer reads one reply frame and closes the socket.
//
//   BEXO::CommonIPCClient client;
//   client.SetupConnection(port);
//   if (client.SendToServer(body, {static_cast<uint32_t>(strlen(body))})) {
//     char* reply; BEXO::CommonIPCMsgHeader hdr;
//     if (client.ReceiveFromServer(&reply, &hdr)) { use(reply, hdr.length); delete[] reply; }
//   }
//
// Waits are bounded: connecting gives up once about 30 seconds were spent
// sleeping on a busy server (a refused or missing socket fails at once), and a
// read or write gives up after 95 seconds of silence in total, counted in
// 5-second rounds that arriving data does not reset. Every failed read or write
// closes the socket, so the next SendToServer starts from a fresh connection.
// Nothing is logged and nothing is thrown.
//
// Thread safety: an object must not be shared between threads; distinct
// objects may be used concurrently.
#pragma once

#include <sys/types.h>

#include "CommonIPCMsgHeader.h"
#include "bexo_export.h"

struct iovec;

namespace BEXO {

class BEXO_EXPORT CommonIPCClient {
 public:
  CommonIPCClient();
  ~CommonIPCClient();  // closes a socket still open
  CommonIPCClient(const CommonIPCClient&) = delete;
  CommonIPCClient& operator=(const CommonIPCClient&) = delete;

  // Stores the port; no I/O.
  void SetupConnection(int port);

  // Creates a non-blocking socket and connects, retrying while the server's
  // backlog is full. False (and the socket closed) when no connection was made.
  // Once connected, the socket blocks on reads for at most one 5-second round
  // (its receive timeout), so a reply wakes the reader in read() itself;
  // writes stay non-blocking. SetSocketUnblocked makes reads wait in poll()
  // rounds instead, with the same budget.
  bool ConnectToServer();

  // Makes the socket non-blocking and close-on-exec. Returns the descriptor,
  // or -1 after closing it when a flag could not be set.
  int SetSocketUnblocked();

  // Writes all `len` bytes; returns `len`, 0 when `len` < 1, or -1 after
  // closing the socket. The write is abandoned as soon as the socket becomes
  // readable: the server has nothing to say before the request is complete,
  // so anything readable means it closed or misbehaved. The first part goes
  // out without that check (a peer that already hung up fails it anyway);
  // every later part of a write that did not fit at once is checked.
  int WriteSock(char* buf, int len);

  // Reads exactly `len` bytes; returns `len`, 0 when `len` < 1, or -1 (after
  // closing the socket) on end of file, error or 95 seconds of silence.
  // Descriptors below 1 count as not connected.
  int ReadSock(char* buf, int len);

  // Connects and writes the header and `hdr.length` bytes of `data`. True only
  // when every byte went out.
  bool SendToServer(const char* data, const CommonIPCMsgHeader& hdr);

  // Reads one reply frame. On success `*data` holds the body followed by a
  // NUL (allocated with new[]: release it with delete[]), `hdr->length` the
  // body length, and the socket is closed. On failure `hdr->length` is 0 and
  // nothing is allocated.
  bool ReceiveFromServer(char** data, CommonIPCMsgHeader* hdr);

  // Closes the socket if one is open.
  void Disconnect();

 private:
  ssize_t WriteAll(struct iovec* parts, int count);
  // Reads at least `least` and at most `most` bytes within the silence
  // budget; returns the count, or -1 after closing the socket.
  ssize_t ReadSome(char* buf, size_t least, size_t most);
  void ReadInRounds();
  bool AwaitReady(short events, int* idle_seconds);
  bool AwaitConnected(int seconds);

  int sock_;  // -1 when not connected
  int port_;
};

}  // namespace BEXO
