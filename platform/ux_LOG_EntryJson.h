// The structured log's line format: one JSON object per entry, on one line.
//
//   {"time":"2026-11-24T15:40:00.123456+09:00","kind":67108864,"id":67108864,
//    "level":5,"attrs":[{"name":"description","type":"string","value":"text"}]}
//
// "time" is the writer's local time with its UTC offset; "attrs" is an array
// so that the order of attributes and repeated names survive any JSON tool;
// "type" is one of "string", "u8", "u32", "s32", and a number's value fits it.
//
// JSON library: RapidJSON, for writing and reading. It is header-only, so the
// x86-64 and the 32-bit x86 builds need no runtime package; its Writer
// streams straight into a reused buffer (no document tree on the write path);
// its reader parses in place, validates UTF-8 and, in iterative mode, never
// recurses, so hostile nesting cannot exhaust the stack. simdjson reads
// faster but would add a compiled library per target and has no writer in the
// packaged version; nlohmann/json builds a tree for every line it writes.
//
// Thread safety: both functions may be called from any thread.
#pragma once

#include <stddef.h>

#include <string>

#include "bexo_export.h"
#include "ux_LOG_LogEntry.h"

// Replaces `line` with the entry's JSON text and a line feed.
BEXO_EXPORT void ux_LOG_EncodeEntry(const ux_LOG_LogEntry& entry, std::string* line);

// Reads one line into `entry`: `text` holds the line without its line feed
// and must be NUL-terminated; it is parsed in place, so it is overwritten.
// False when the text is not a well-formed entry (`entry` is then unspecified).
BEXO_EXPORT bool ux_LOG_DecodeEntry(char* text, ux_LOG_LogEntry* entry);
