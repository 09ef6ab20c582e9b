// Mail queue writers and the lock-file protocol of the spool directory.
#include "mailqueue.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bexo_util.h"
#include "mail_cnvt.h"

namespace {

constexpr char kBoundary[] = "000-0000-AAAAAAAA-AAAAAAAA";  // constant on purpose, not random
constexpr unsigned kMaxAttachment = 200000000;
constexpr time_t kReaderStaleSeconds = 7200;    // a reader gives up on a writer after 2 hours
constexpr time_t kWriterStaleSeconds = 259200;  // a writer honours another's lock for 3 days
constexpr int kNameAttempts = 64;

std::string LockPath(const char* path) {
  const char* name = get_fn(const_cast<char*>(path));
  return std::string(path, static_cast<size_t>(name - path)) + "LOCK." + name;
}

// Modification time of the lock of `path`; false when there is none.
bool LockTime(const std::string& lock, time_t* mtime) {
  struct stat st;
  if (stat(lock.c_str(), &st) != 0) return false;
  *mtime = st.st_mtime;
  return true;
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// "<dir>/KOML<random>-<pid>". The "/" is always added: the historical check
// for a trailing separator looked at the terminating NUL and never matched,
// and the resulting "//" is harmless. The random number comes from rand_r
// seeded with the time in seconds; a name that is already taken (a second
// mail of this process within the same second) moves on to the next draw.
bool SpoolFileName(const char* dir, char* name, size_t size) {
  unsigned seed = static_cast<unsigned>(time(nullptr));
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    int random = rand_r(&seed);
    bexo_snprintf(name, size, "%s/KOML%d-%d", dir, random, static_cast<int>(getpid()));
    if (!Exists(name) && !Exists(LockPath(name))) return true;
  }
  return false;
}

class SpoolWriter {
 public:
  explicit SpoolWriter(FILE* file) : file_(file) {}

  void Line(char tag, const char* value) { fprintf(file_, "%c %s\n", tag, value); }
  void Body(const char* text) { Line('B', text); }
  void Boundary(const char* suffix) { fprintf(file_, "B ------=_NextPart_%s%s\n", kBoundary, suffix); }
  // A B line written literally, whatever the piece holds.
  void BodyPiece(const char* piece, size_t len) {
    fputs("B ", file_);
    fwrite(piece, 1, len, file_);
    fputc('\n', file_);
  }

  bool Attachment(const char* data, unsigned size, const char* name) {
    Boundary("");
    if (name != nullptr) fprintf(file_, "B Content-Disposition: attachment; filename=\"%s\"\n", name);
    Body("Content-Transfer-Encoding: base64");
    Body("");
    size_t len = 0;
    char* encoded = to_base64(reinterpret_cast<const unsigned char*>(data), size, &len);
    if (encoded == nullptr) return false;
    for (size_t start = 0; start < len;) {
      size_t end = start + strcspn(encoded + start, "\r\n");
      if (end > start) BodyPiece(encoded + start, end - start);
      start = end + 1;
    }
    free(encoded);
    Body("");
    return true;
  }

 private:
  FILE* file_;
};

bool WriteSpoolFile(FILE* file, const _DMailReq* req, char** data, const unsigned* sizes, char** names) {
  SpoolWriter out(file);
  out.Line('F', req->sender);
  for (dplist* node = req->recipients; node != nullptr; node = node->next) out.Line('T', node->data);
  out.Line('D', req->d_text);
  out.Line('S', req->subject);
  if (data == nullptr) {
    for (dplist* node = req->body; node != nullptr; node = node->next) out.Body(node->data);
  } else {
    fputs("M 1\n", file);
    out.Body("MIME-Version: 1.0");
    out.Body("Content-Type: multipart/mixed;");
    fprintf(file, "B \tboundary=\"----=_NextPart_%s\"\n", kBoundary);
    out.Body("");
    out.Body("");
    out.Boundary("");
    out.Body("Content-Type: text/plain;charset=utf-8");
    out.Body("");
    for (dplist* node = req->body; node != nullptr; node = node->next) out.Body(node->data);
    out.Body("");
    for (size_t i = 0; data[i] != nullptr; ++i) {
      if (sizes[i] < 1 || sizes[i] > kMaxAttachment) continue;  // skipped silently
      if (!out.Attachment(data[i], sizes[i], names ? names[i] : nullptr)) return false;
    }
    out.Body("");
    out.Boundary("--");
    out.Body("");
  }
  fprintf(file, "R %d\n", req->r_number);
  return ferror(file) == 0;
}

}  // namespace

char* get_fn(char* path) {
  char* slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

int mailqueue_islock(char* path) {
  if (strncmp(get_fn(path), "LOCK.", 5) == 0) return 1;  // a lock file is never mail
  std::string lock = LockPath(path);
  time_t mtime;
  if (!LockTime(lock, &mtime)) return 0;
  if (mtime > time(nullptr) - kReaderStaleSeconds) return 1;
  unlink(lock.c_str());
  return 0;
}

int mailqueue_lockfile(char* path) {
  std::string lock = LockPath(path);
  time_t mtime;
  if (LockTime(lock, &mtime)) {
    if (mtime > time(nullptr) - kWriterStaleSeconds) return -1;
    unlink(lock.c_str());
  }
  int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  close(fd);
  return 0;
}

int mailqueue_unlockfile(char* path) { return unlink(LockPath(path).c_str()); }

int mailqueue_put(_DMailReq* req, char* dir) {
  return mailqueue_put_with_attachments(req, dir, nullptr, nullptr, nullptr);
}

int mailqueue_put_with_attachments(_DMailReq* req, char* dir, char** data, unsigned* sizes, char** names) {
  if (dir == nullptr) return -1;
  char path[kMailFieldSize];
  if (req->sender[0] == '\0' || req->recipients == nullptr) return -1;
  if (!SpoolFileName(dir, path, sizeof path)) return -1;
  if (mailqueue_lockfile(path) != 0) return -1;
  FILE* file = fopen(path, "we");
  if (file == nullptr) return -1;  // the lock stays and goes stale
  bool written = WriteSpoolFile(file, req, data, sizes, names);
  if (fclose(file) != 0) written = false;
  if (!written) unlink(path);  // never leave a truncated mail for the sender
  mailqueue_unlockfile(path);
  return written ? 0 : -1;
}

int mailqueue_put_with_files(_DMailReq* req, char* dir, char** files, char** names) {
  if (files == nullptr || files[0] == nullptr) return 0;
  size_t count = 0;
  while (files[count] != nullptr) ++count;
  std::vector<char*> buffers;
  std::vector<unsigned> sizes;
  buffers.reserve(count + 1);
  sizes.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    struct stat st;
    if (stat(files[i], &st) != 0) {
      printf("stat failed. file: %s\n", files[i]);
      continue;
    }
    if (st.st_size > static_cast<off_t>(kMaxAttachment)) {
      // Too large to send: kept in place (so the names stay paired) but not read.
      char* placeholder = static_cast<char*>(calloc(1, 1));
      if (placeholder == nullptr) continue;
      buffers.push_back(placeholder);
      sizes.push_back(kMaxAttachment + 1);
      continue;
    }
    size_t capacity = static_cast<size_t>(st.st_size) + 10;
    char* buffer = static_cast<char*>(calloc(capacity, 1));
    FILE* file = buffer ? fopen(files[i], "rbe") : nullptr;
    if (file == nullptr) {
      free(buffer);
      continue;
    }
    size_t got = fread(buffer, 1, capacity, file);
    fclose(file);
    buffers.push_back(buffer);
    sizes.push_back(static_cast<unsigned>(got));
  }
  buffers.push_back(nullptr);
  int result = mailqueue_put_with_attachments(req, dir, buffers.data(), sizes.data(), names);
  for (char* buffer : buffers) free(buffer);
  return result;
}
