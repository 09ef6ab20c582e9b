// Small helpers shared by the event log sources.
//
// Thread safety: every function may be called from any thread.
#pragma once

namespace bexo_eventlog {

// The source name the event log's diagnostics carry.
constexpr char kSourceFile[] = "EventLogBase.cpp";

// The text of an errno value, or "Unknown" when the system has none.
const char* ErrorText(int error);

}  // namespace bexo_eventlog
