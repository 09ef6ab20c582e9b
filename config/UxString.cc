#include "UxString.h"

#include <string.h>

#include "UxLog.h"

namespace {

constexpr char kLogSource[] = "UxString";

char* NewBuffer(int32_t capacity) {
  char* buffer = new char[capacity];
  buffer[0] = '\0';
  return buffer;
}

}  // namespace

String::String() : buffer_(NewBuffer(128)), length_(0), capacity_(128) {}

String::String(const char* text) : String() { *this = text; }

String::String(const char* first, const char* last) : String() {
  if (first == nullptr || last == nullptr || last < first) return;
  int32_t length = static_cast<int32_t>(last - first + 1);
  delete[] buffer_;
  capacity_ = CapacityFor(length);
  buffer_ = new char[capacity_];
  memcpy(buffer_, first, length);
  buffer_[length] = '\0';
  length_ = length;
}

String::String(const String& other)
    : buffer_(new char[other.capacity_]), length_(other.length_), capacity_(other.capacity_) {
  memcpy(buffer_, other.buffer_, other.length_ + 1);
}

String::~String() { delete[] buffer_; }

String& String::operator=(const String& other) { return *this = other.buffer_; }

String& String::operator=(const char* text) {
  if (text == buffer_) return *this;
  if (text == nullptr) text = "";
  int32_t length = static_cast<int32_t>(strlen(text));
  if (capacity_ <= length) {
    UX_LOG(3, kLogSource, "operator=", "String::operator= - before delete\n");
    delete[] buffer_;
    capacity_ = CapacityFor(length);
    buffer_ = new char[capacity_];
  }
  memmove(buffer_, text, length + 1);
  length_ = length;
  return *this;
}

String& String::operator+=(const char* text) {
  if (text == nullptr) return *this;
  int32_t added = static_cast<int32_t>(strlen(text));
  int32_t length = length_ + added;
  if (length >= capacity_) {
    int32_t capacity = CapacityFor(length);
    char* buffer = new char[capacity];
    memcpy(buffer, buffer_, length_ + 1);
    memcpy(buffer + length_, text, added + 1);  // `text` may lie in the old buffer
    UX_LOG(3, kLogSource, "operator+=", "String::operator+= - before delete\n");
    delete[] buffer_;
    buffer_ = buffer;
    capacity_ = capacity;
  } else {
    memmove(buffer_ + length_, text, added + 1);
  }
  length_ = length;
  return *this;
}

String String::operator+(const char* text) const {
  String result(*this);
  result += text;
  return result;
}

String& String::operator<<(char c) {
  char text[2] = {c, '\0'};
  return *this += text;
}

String& String::operator<<(int value) {
  char digits[16];
  int count = 0;
  unsigned magnitude = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  do {
    digits[count++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  char text[18];
  int pos = 0;
  if (value < 0) text[pos++] = '-';
  while (count > 0) text[pos++] = digits[--count];
  text[pos] = '\0';
  return *this += text;
}

void String::make(int start, int end, String& out) const {
  if (start < 0) start = 0;
  if (end > length_) end = length_;
  if (end <= start) {
    out = "";
    return;
  }
  out = String(buffer_ + start, buffer_ + end - 1);
}

void StringMan::split(const String& source, List<String>& out, const char* delimiters) {
  out.clear();
  if (delimiters == nullptr) delimiters = "";
  const char* p = source.c_str();
  while (*p == ' ' || *p == '\t') ++p;
  while (*p != '\0') {
    p += strspn(p, delimiters);
    if (*p == '\0') break;
    size_t run = strcspn(p, delimiters);
    out.append(String(p, p + run - 1));
    p += run;
  }
}

char* Path::findbaseptr(char* path, char separator, int cut) {
  if (path == nullptr) return nullptr;
  if (cut != 0) {
    char* stop = strpbrk(path, "\\:,;*<>|?");
    if (stop) *stop = '\0';
  }
  char* last = strrchr(path, separator);
  return last ? last + 1 : path;
}

char* Path::findextptr(char* path, char separator, int cut) {
  if (path == nullptr) return nullptr;
  char* base = findbaseptr(path, separator, cut);
  char* dot = strrchr(base, '.');
  if (dot == nullptr) return nullptr;
  char* extension = dot + 1;
  if (strlen(extension) > 64) extension[64] = '\0';
  return extension;
}
