// String, List<String>, StringMan and Path: the small text utilities of the
// library's older code.
//
// String keeps its capacity a multiple of 128 and larger than its length: for
// a length n the capacity is n + 128 rounded down to a multiple of 128.
//
// Thread safety: value types; distinct objects may be used from any thread.
#pragma once

#include <stdint.h>

#include "bexo_export.h"

class BEXO_EXPORT String {
 public:
  String();
  String(const char* text);  // NOLINT: implicit like the C strings it replaces
  // Characters from `first` to `last` inclusive; empty when `last` < `first`.
  String(const char* first, const char* last);
  String(const String& other);
  ~String();

  String& operator=(const String& other);
  String& operator=(const char* text);
  String& operator+=(const char* text);
  String operator+(const char* text) const;
  String& operator<<(char c);
  String& operator<<(int value);

  // Assigns to `out` the characters [start, end), clamped to the string.
  void make(int start, int end, String& out) const;

  const char* c_str() const { return buffer_; }
  operator const char*() const { return buffer_; }  // NOLINT
  int length() const { return length_; }
  int capacity() const { return capacity_; }

  static int32_t CapacityFor(int32_t length) { return (length + 128) & ~127; }

 private:
  char* buffer_;
  int32_t length_;
  int32_t capacity_;
};

// A doubly linked list with head, tail and count.
template <typename T>
class List {
 public:
  struct Node {
    T value;
    Node* prev;
    Node* next;
  };

  List() = default;
  ~List() { clear(); }
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  void append(const T& value) {
    Node* node = new Node{value, tail_, nullptr};
    if (tail_) {
      tail_->next = node;
    } else {
      head_ = node;
    }
    tail_ = node;
    ++count_;
  }

  void clear() {
    while (head_) {
      Node* next = head_->next;
      delete head_;
      head_ = next;
    }
    tail_ = nullptr;
    count_ = 0;
  }

  Node* head() const { return head_; }
  Node* tail() const { return tail_; }
  int count() const { return count_; }

 private:
  Node* head_ = nullptr;
  Node* tail_ = nullptr;
  int count_ = 0;
};

class BEXO_EXPORT StringMan {
 public:
  // Empties `out`, skips the leading tabs and spaces of `source`, then appends
  // every maximal run of characters not in `delimiters`.
  static void split(const String& source, List<String>& out, const char* delimiters);
};

class BEXO_EXPORT Path {
 public:
  // The part after the last `separator`. With `cut` non-zero the path is first
  // cut (a NUL written into it) at the first of "\\:,;*<>|?".
  static char* findbaseptr(char* path, char separator, int cut);
  // The extension after the base's last ".", or null; an extension over 64
  // characters is cut to 64 in place.
  static char* findextptr(char* path, char separator, int cut);
};
