#include "host_port.h"

#include <string.h>

namespace {

// Appends `text` while room is left; returns the new length.
size_t Append(char* buffer, size_t size, size_t length, const char* text, size_t text_length) {
  if (length + 1 >= size) return length;
  size_t room = size - 1 - length;
  size_t n = text_length < room ? text_length : room;
  memcpy(buffer + length, text, n);
  return length + n;
}

}  // namespace

size_t JoinHostPort(const char* host, int port, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) return 0;
  if (host == nullptr) host = "";
  size_t host_length = strlen(host);
  size_t length = 0;
  bool bracket = port > 0 && host[0] != '[' && memchr(host, ':', host_length) != nullptr;
  if (bracket) length = Append(buffer, size, length, "[", 1);
  length = Append(buffer, size, length, host, host_length);
  if (bracket) length = Append(buffer, size, length, "]", 1);
  if (port > 0) {
    char digits[16];
    size_t n = 0;
    digits[n++] = ':';
    char reversed[12];
    size_t r = 0;
    for (unsigned value = static_cast<unsigned>(port); value != 0; value /= 10) {
      reversed[r++] = static_cast<char>('0' + value % 10);
    }
    while (r > 0) digits[n++] = reversed[--r];
    length = Append(buffer, size, length, digits, n);
  }
  buffer[length] = '\0';
  return length;
}
