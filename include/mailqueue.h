// Mail queue: notification mail is handed to the gateway's mail-sending daemon
// as one spool file per message in a queue directory. The library never speaks
// SMTP; it writes the files under a lock-file protocol that keeps the sender
// away from a file still being written.
//
// Spool file: "<dir>/KOML<random>-<pid>", text lines "<tag> <value>\n":
//   F sender, T one per recipient, D text, S subject, [M 1], B body lines, R number.
// With attachments the B lines form a multipart/mixed message with the fixed
// boundary "----=_NextPart_000-0000-AAAAAAAA-AAAAAAAA" (constant on purpose).
//
// Lock file: "<dir>/LOCK.<name>" exists while <name> is written. A reader
// treats a lock younger than 2 hours as held and removes an older one; a
// writer refuses a lock younger than 3 days and removes an older one.
//
// Buffers come from malloc and strdup; the caller frees what it is handed.
// Thread safety: no shared state; distinct requests may be used from any thread.
#pragma once

#include "UxString.h"
#include "bexo_export.h"

// A singly linked string list. The head node alone keeps `last` up to date,
// so appending is constant time. An empty list is a null head.
struct dplist {
  char* data;
  dplist* next;
  dplist* last;
};

// Appends a copy of `s`; returns the new head, or null when memory ran out
// (a caller storing that as its head loses the earlier nodes).
BEXO_EXPORT dplist* dplist_add(dplist* head, const char* s);
// Frees every node and its copy; returns 0.
BEXO_EXPORT int dplist_removeall(dplist* head);
BEXO_EXPORT int dplist_get_nelem(dplist* head);
// The i-th string counting from 0, or null past the end.
BEXO_EXPORT char* dplist_get_elem(dplist* head, unsigned i);

constexpr int kMailFieldSize = 5120;  // every text field holds at most 5119 characters

// The fixed form of a request, the one the writers take.
struct _DMailReq {
  char sender[kMailFieldSize];
  dplist* recipients;
  char subject[kMailFieldSize];
  dplist* body;
  char d_text[kMailFieldSize];
  int r_number;
  int extra;  // carried from the fixed form to the object form only
};

// The object form of a request.
class BEXO_EXPORT MailReq {
 public:
  MailReq() = default;
  MailReq(const MailReq&) = delete;
  MailReq& operator=(const MailReq&) = delete;

  String sender;
  List<String> recipients;
  String subject;
  List<String> body;
  String d_text;
  int r_number = 0;
  int extra = 0;
};

// Writes a plain spool file into `dir`. 0, or -1 (no directory, no sender, no
// recipient, lock held, file not writable).
BEXO_EXPORT int mailqueue_put(_DMailReq* req, char* dir);

// Writes a multipart spool file. `data` is a null-terminated array of
// attachment buffers, `sizes` their byte counts, `names` an optional parallel
// array of file names (a null entry gives a part without a file name). An
// attachment of 0 bytes or more than 200,000,000 bytes is skipped. A null
// `data` writes a plain file.
BEXO_EXPORT int mailqueue_put_with_attachments(_DMailReq* req, char* dir, char** data,
                                               unsigned* sizes, char** names);

// Reads the files of the null-terminated `files` array and writes them as
// attachments. A file that cannot be read is skipped ("stat failed. file: ..."
// on stdout when it does not exist) and `names` pair with the files that were
// read, by position. A null or empty `files` writes nothing and returns 0.
BEXO_EXPORT int mailqueue_put_with_files(_DMailReq* req, char* dir, char** files, char** names);

// Object form to fixed form: releases the fixed form's lists first (so it must
// be zeroed or hold lists of its own), cuts texts at 5119 characters, leaves
// `extra` 0. And back, `extra` included. Both return 0.
BEXO_EXPORT int mailqueue_conv_rtod(MailReq* object, _DMailReq* fixed);
BEXO_EXPORT int mailqueue_conv_dtor(MailReq* object, _DMailReq* fixed);

// Release both lists of the fixed form; return 0.
BEXO_EXPORT int mailqueue_free_request(_DMailReq* req);
BEXO_EXPORT int mailqueue_free(_DMailReq* req);

// Reading side: 1 when the spool file at `path` is locked (or is itself a
// lock file), 0 when it may be read. A lock older than 2 hours is removed.
BEXO_EXPORT int mailqueue_islock(char* path);
// Writing side: creates the lock of `path`; 0, or -1 when a lock younger than
// 3 days exists or the lock cannot be created.
BEXO_EXPORT int mailqueue_lockfile(char* path);
// Removes the lock of `path`; the unlink result.
BEXO_EXPORT int mailqueue_unlockfile(char* path);

// The part of `path` after the last "/", or `path` itself.
BEXO_EXPORT char* get_fn(char* path);

// Debug dumps kept for callers that still call them: they print nothing.
BEXO_EXPORT void dump_mail_req(MailReq* req);
BEXO_EXPORT void dump_mail_dreq(_DMailReq* req);
