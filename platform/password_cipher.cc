#include "password_cipher.h"

#include <errno.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "UxLog.h"
#include "product_path.h"

const char kPasswordKeyFile[] = "/etc/kvelo/db_password.key";

namespace {

constexpr char kLogFile[] = "password_cipher.cc";
constexpr char kPrefix[] = "v1:";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;
constexpr int kKeyBytes = 32;
constexpr int kNonceBytes = 12;
constexpr int kTagBytes = 16;
// Bound on a password: it must open into the callers' 1024-byte buffers.
constexpr size_t kMaxPlain = 1023;

struct Key {
  unsigned char bytes[kKeyBytes];
  ~Key() { OPENSSL_cleanse(bytes, sizeof bytes); }
};

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

bool ReadKey(Key& key) {
  const std::string path = bexo::ProductPath(kPasswordKeyFile);
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) {
    const int error = errno;
    UX_LOG(1, kLogFile, "ReadKey", "ERROR: cannot open key file %s: %s", path.c_str(), strerror(error));
    return false;
  }
  struct stat st;
  const bool safe = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
                    (st.st_mode & 077) == 0 && st.st_size == kKeyBytes;
  const bool read_all = safe && read(fd, key.bytes, kKeyBytes) == kKeyBytes;
  close(fd);
  if (!safe) {
    UX_LOG(1, kLogFile, "ReadKey",
           "ERROR: key file %s refused: it must be %d bytes, owned by uid %u and readable by its owner only",
           path.c_str(), kKeyBytes, static_cast<unsigned>(geteuid()));
  }
  return read_all;
}

bool MakeKeyIfMissing() {
  const std::string path = bexo::ProductPath(kPasswordKeyFile);
  if (access(path.c_str(), F_OK) == 0) return true;
  Key key;
  if (RAND_bytes(key.bytes, kKeyBytes) != 1) return false;
  bexo::MakeParentDirectories(path);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0400);
  if (fd < 0) {
    const int error = errno;
    // Another process made it first: use theirs.
    if (error == EEXIST) return true;
    UX_LOG(1, kLogFile, "MakeKeyIfMissing", "ERROR: cannot create key file %s: %s", path.c_str(),
           strerror(error));
    return false;
  }
  const bool written = write(fd, key.bytes, kKeyBytes) == kKeyBytes && fsync(fd) == 0;
  close(fd);
  if (!written) unlink(path.c_str());
  return written;
}

std::string Base64Encode(const unsigned char* data, size_t size) {
  std::string text(4 * ((size + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), data, static_cast<int>(size));
  text.resize(n);
  return text;
}

// False for text that is not canonical base64.
bool Base64Decode(const char* text, size_t length, std::vector<unsigned char>& out) {
  if (length == 0 || length % 4 != 0) return false;
  out.assign(length / 4 * 3 + 1, 0);
  const int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text), static_cast<int>(length));
  if (n < 0) return false;
  size_t size = static_cast<size_t>(n);
  if (text[length - 1] == '=') --size;
  if (text[length - 2] == '=') --size;
  out.resize(size);
  return true;
}

int CopyOut(const std::string& text, char* out, int out_size) {
  if (out_size <= 0 || text.size() >= static_cast<size_t>(out_size)) {
    if (out_size > 0) out[0] = '\0';
    UX_LOG(1, kLogFile, "CopyOut", "ERROR: password buffer of %d bytes too small", out_size);
    return -1;
  }
  memcpy(out, text.data(), text.size() + 1);
  return static_cast<int>(text.size());
}

}  // namespace

int NewEncryptStr(const char* plain, char* out, int out_size) {
  if (plain == nullptr || out == nullptr) return -1;
  const size_t length = strlen(plain);
  if (length > kMaxPlain) {
    UX_LOG(1, kLogFile, "NewEncryptStr", "ERROR: password longer than %zu bytes", kMaxPlain);
    return -1;
  }
  Key key;
  if (!MakeKeyIfMissing() || !ReadKey(key)) return -1;
  std::vector<unsigned char> sealed(kNonceBytes + length + kTagBytes);
  unsigned char* nonce = sealed.data();
  unsigned char* cipher = nonce + kNonceBytes;
  if (RAND_bytes(nonce, kNonceBytes) != 1) return -1;
  CipherContext ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int n = 0;
  int tail = 0;
  const bool ok =
      ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key.bytes, nonce) == 1 &&
      EVP_EncryptUpdate(ctx.get(), cipher, &n, reinterpret_cast<const unsigned char*>(plain),
                        static_cast<int>(length)) == 1 &&
      EVP_EncryptFinal_ex(ctx.get(), cipher + n, &tail) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, kTagBytes, cipher + length) == 1;
  if (!ok) return -1;
  return CopyOut(kPrefix + Base64Encode(sealed.data(), sealed.size()), out, out_size);
}

int NewDecryptStr(const char* enciphered, char* out, int out_size) {
  if (out == nullptr || out_size <= 0) return -1;
  out[0] = '\0';
  if (enciphered == nullptr || enciphered[0] == '\0') return 0;
  std::vector<unsigned char> sealed;
  const size_t length = strlen(enciphered);
  if (strncmp(enciphered, kPrefix, kPrefixLength) != 0 ||
      !Base64Decode(enciphered + kPrefixLength, length - kPrefixLength, sealed) ||
      sealed.size() < kNonceBytes + kTagBytes || sealed.size() > kNonceBytes + kMaxPlain + kTagBytes) {
    UX_LOG(1, kLogFile, "NewDecryptStr", "ERROR: the enciphered password is not in the expected form");
    return -1;
  }
  Key key;
  if (!ReadKey(key)) return -1;
  const size_t plain_length = sealed.size() - kNonceBytes - kTagBytes;
  unsigned char* nonce = sealed.data();
  unsigned char* cipher = nonce + kNonceBytes;
  std::string plain(plain_length, '\0');
  CipherContext ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int n = 0;
  int tail = 0;
  unsigned char* plain_bytes = reinterpret_cast<unsigned char*>(&plain[0]);
  const bool ok =
      ctx && EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key.bytes, nonce) == 1 &&
      EVP_DecryptUpdate(ctx.get(), plain_bytes, &n, cipher, static_cast<int>(plain_length)) == 1 &&
      EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, kTagBytes, cipher + plain_length) == 1 &&
      EVP_DecryptFinal_ex(ctx.get(), plain_bytes + n, &tail) == 1;
  if (!ok) {
    OPENSSL_cleanse(plain_bytes, plain_length);
    UX_LOG(1, kLogFile, "NewDecryptStr", "ERROR: the enciphered password does not open with this key");
    return -1;
  }
  const int result = CopyOut(plain, out, out_size);
  OPENSSL_cleanse(plain_bytes, plain_length);
  return result;
}

void WipeSecret(void* data, size_t size) { OPENSSL_cleanse(data, size); }
