// The length of one second in the IPC waits (the client's connect retries,
// the 5-second read and write rounds of the client and the server's reply
// write). Tests shorten it so that budgets of 30 and 95 seconds run in
// milliseconds with the same arithmetic.
//
// Thread safety: any thread; a change applies to waits that start after it
// (to reads, from the next connection: the read round is set when connecting).
#pragma once

#include <sys/time.h>

namespace bexo {

// Milliseconds per client second (1000 unless a test changed it).
int IpcClientSecondMillis();
void SetIpcClientSecondForTesting(int milliseconds);

// `seconds` client seconds, in milliseconds, for poll().
int IpcClientMillis(int seconds);

// Reads and writes wait in rounds of this many seconds under one silence
// budget per call; arriving data does not reset it.
constexpr int kIpcRoundSeconds = 5;

// One round as a socket timeout (SO_RCVTIMEO, SO_SNDTIMEO).
timeval IpcRoundTimeout();

// Counts one silent round into `*idle_seconds`; false when the budget is
// spent: a round that finds more than 89 seconds counted gives up, so 19
// silent rounds, 95 seconds.
bool IpcSilentRound(int* idle_seconds);

// Sleeps `seconds` client seconds; a signal may cut the sleep short, as with sleep().
void IpcClientSleep(int seconds);

}  // namespace bexo
