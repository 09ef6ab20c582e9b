// The length of one second in the IPC client's waits (connect retries, the
// 5-second read and write rounds). Tests shorten it so that budgets of 30 and
// 95 seconds run in milliseconds with the same arithmetic.
//
// Thread safety: any thread; a change applies to waits that start after it
// (to reads, from the next connection: the read round is set when connecting).
#pragma once

namespace bexo {

// Milliseconds per client second (1000 unless a test changed it).
int IpcClientSecondMillis();
void SetIpcClientSecondForTesting(int milliseconds);

// `seconds` client seconds, in milliseconds, for poll().
int IpcClientMillis(int seconds);

// Sleeps `seconds` client seconds; a signal may cut the sleep short, as with sleep().
void IpcClientSleep(int seconds);

}  // namespace bexo
