// The system event log service: sends one syslog message per event, with the
// event identifier as the message id. Configuration is read from section
// "System-Event" of "/etc/kvelo/morvane.ini" at initialisation and on
// RefreshConfig:
//
//   syslog_transport  "unix" (default), "udp" or "tcp"
//   syslog_socket     datagram socket of the local syslog daemon, default
//                     "/dev/log" (a system path, used as given)
//   syslog_host       remote host for udp/tcp, default "127.0.0.1"
//   syslog_port       remote port for udp/tcp, default 514
//   syslog_format     "rfc5424" (default) or "rfc3164"
//   Facility          facility code 0-23, default 1 (user)
//
// Severities 0-7 are the syslog severities. The report path sends severity 11;
// every value above 7 means "report record" and goes out as informational (6).
// TCP messages are framed by octet counting (RFC 6587).
//
// Thread safety: every function may be called from any thread; one message is
// one send, so messages of concurrent callers never mix.
#pragma once

#include "bexo_export.h"

// Each returns 0 on success, -1 on failure.
BEXO_EXPORT int InitializeSystemEventLog();
BEXO_EXPORT int DeinitializeSystemEventLog();
// Reads the configuration again and reopens the destination.
BEXO_EXPORT int RefreshConfig();
// An event with no text.
BEXO_EXPORT int SystemEventLog(int event_id, int severity);
BEXO_EXPORT int SystemEventLogF(int event_id, int severity, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
