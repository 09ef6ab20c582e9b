#include "ipc/ipc_clock.h"

#include <time.h>

#include <atomic>

namespace bexo {
namespace {

std::atomic<int> g_second_millis{1000};
constexpr int kIdleGiveUpAbove = 89;

}  // namespace

int IpcClientSecondMillis() { return g_second_millis.load(std::memory_order_relaxed); }

void SetIpcClientSecondForTesting(int milliseconds) {
  g_second_millis.store(milliseconds > 0 ? milliseconds : 1, std::memory_order_relaxed);
}

int IpcClientMillis(int seconds) { return seconds * IpcClientSecondMillis(); }

timeval IpcRoundTimeout() {
  int round = IpcClientMillis(kIpcRoundSeconds);
  return timeval{round / 1000, (round % 1000) * 1000};
}

bool IpcSilentRound(int* idle_seconds) {
  if (*idle_seconds > kIdleGiveUpAbove) return false;
  *idle_seconds += kIpcRoundSeconds;
  return true;
}

void IpcClientSleep(int seconds) {
  long millis = IpcClientMillis(seconds);
  timespec wait{millis / 1000, (millis % 1000) * 1000000L};
  nanosleep(&wait, nullptr);
}

}  // namespace bexo
