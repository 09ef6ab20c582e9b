// Test support: one IPC request/reply exchange through the real client.
#pragma once

#include <stdint.h>

#include <string>

#include "CommonIPCClient.h"

namespace bexo_test {

// Sends `request` to `port` and stores the reply; false when either leg failed.
inline bool IpcExchange(int port, const std::string& request, std::string* reply) {
  BEXO::CommonIPCClient client;
  client.SetupConnection(port);
  BEXO::CommonIPCMsgHeader header;
  header.length = static_cast<uint32_t>(request.size());
  if (!client.SendToServer(request.data(), header)) return false;
  char* body = nullptr;
  if (!client.ReceiveFromServer(&body, &header)) return false;
  reply->assign(body, header.length);
  delete[] body;
  return true;
}

}  // namespace bexo_test
