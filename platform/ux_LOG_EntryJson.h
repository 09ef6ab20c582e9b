// The structured log's line format: one JSON object per entry, on one line.
//
//   {"time":"2026-11-24T15:40:00.123456+09:00","kind":67108864,"id":67108864,
//    "level":5,"attrs":[{"name":"description","type":"string","value":"text"}]}
//
// "time" is the writer's local time with its UTC offset; "attrs" is an array
// so that the order of attributes and repeated names survive any JSON tool;
// "type" is one of "string", "u8", "u32", "s32", and a number's value fits it.
//
// JSON library: nlohmann/json. Every string of a line (names and texts) is
// escaped by it and the fixed frame around the strings is put together
// directly; every line read goes through its event (SAX) parser straight
// into the entry. Neither side builds a tree per line. Chosen
// for robustness first: header-only (the x86-64 and 32-bit x86 builds need
// no runtime package), a parser that does not recurse on nesting and rejects
// invalid UTF-8, continuously fuzzed upstream and actively maintained. The
// packaged RapidJSON (1.1.0, from 2016) is faster but its stacks do pointer
// arithmetic on null that UBSan reports, which the fuzzing of this reader
// under UBSan cannot accept; simdjson parses faster still but is a compiled
// library per target and has no writer in the packaged version. Per line the
// cost is a few microseconds either way, next to the lock and write(2).
//
// Thread safety: both functions may be called from any thread.
#pragma once

#include <stddef.h>

#include <string>

#include "bexo_export.h"
#include "ux_LOG_LogEntry.h"

// Replaces `line` with the entry's JSON text and a line feed.
BEXO_EXPORT void ux_LOG_EncodeEntry(const ux_LOG_LogEntry& entry, std::string* line);

// Reads one line (`length` bytes, without its line feed) into `entry`. False
// when the text is not a well-formed entry (`entry` is then partly filled).
BEXO_EXPORT bool ux_LOG_DecodeEntry(const char* text, size_t length, ux_LOG_LogEntry* entry);
