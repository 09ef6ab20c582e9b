#include "report/record_format.h"

#include <string.h>

namespace bexo_report {
namespace {

// Digits of `value` right-aligned at the end of `end`; returns the first digit.
char* WriteDigits(unsigned long long value, char* end) {
  do {
    *--end = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  return end;
}

// Fields are mostly a few bytes long: fixed-size moves beat a memcpy call.
inline void CopyBytes(char* out, const char* data, size_t length) {
  if (length <= 16) {
    if (length >= 8) {
      uint64_t head, tail;
      memcpy(&head, data, 8);
      memcpy(&tail, data + length - 8, 8);
      memcpy(out, &head, 8);
      memcpy(out + length - 8, &tail, 8);
    } else if (length >= 4) {
      uint32_t head, tail;
      memcpy(&head, data, 4);
      memcpy(&tail, data + length - 4, 4);
      memcpy(out, &head, 4);
      memcpy(out + length - 4, &tail, 4);
    } else {
      if (length > 0) out[0] = data[0];
      if (length > 1) out[1] = data[1];
      if (length > 2) out[2] = data[2];
    }
    return;
  }
  memcpy(out, data, length);
}

class Writer {
 public:
  Writer(char* out, size_t capacity) : out_(out), capacity_(capacity) {}

  void Put(const char* data, size_t length) {
    if (length_ + length <= capacity_) {
      CopyBytes(out_ + length_, data, length);
    } else if (length_ < capacity_) {
      memcpy(out_ + length_, data, capacity_ - length_);
    }
    length_ += length;
  }
  size_t length() const { return length_; }

 private:
  char* out_;
  size_t capacity_;
  size_t length_ = 0;
};

}  // namespace

RecordFormat::RecordFormat(const char* format) {
  uint32_t pending_offset = 0;  // literal text not yet attached to a conversion
  auto add_literal = [this](const char* text, size_t length) {
    literals_.insert(literals_.end(), text, text + length);
  };
  for (const char* p = format; *p != '\0';) {
    if (*p != '%') {
      const char* next = strchr(p, '%');
      size_t length = next ? static_cast<size_t>(next - p) : strlen(p);
      add_literal(p, length);
      p += length;
      continue;
    }
    ++p;
    if (*p == '%') {
      add_literal("%", 1);
      ++p;
      continue;
    }
    uint32_t precision = UINT32_MAX;
    if (*p == '.') {
      precision = 0;
      for (++p; *p >= '0' && *p <= '9'; ++p) precision = precision * 10 + static_cast<uint32_t>(*p - '0');
    }
    FormatArg::Kind kind;
    if (*p == 's') {
      kind = FormatArg::kText, p += 1;
    } else if (*p == 'd') {
      kind = FormatArg::kInt, p += 1;
    } else if (*p == 'u') {
      kind = FormatArg::kUnsigned, p += 1;
    } else if (strncmp(p, "lld", 3) == 0) {
      kind = FormatArg::kLongLong, p += 3;
    } else if (strncmp(p, "llu", 3) == 0) {
      kind = FormatArg::kUnsignedLongLong, p += 3;
    } else {
      valid_ = false;  // outside the dialect: Format refuses every call
      return;
    }
    uint32_t end = static_cast<uint32_t>(literals_.size());
    ops_.push_back(Op{kind, pending_offset, end - pending_offset, precision});
    pending_offset = end;
  }
  tail_offset_ = pending_offset;
  tail_length_ = static_cast<uint32_t>(literals_.size()) - pending_offset;
}

long RecordFormat::Format(char* out, size_t capacity, const FormatArg* args, size_t count) const {
  if (!valid_ || count != ops_.size()) return -1;
  Writer writer(out, capacity);
  char digits[24];
  char* const digits_end = digits + sizeof digits;
  const char* literals = literals_.data();
  const FormatArg* arg = args;
  for (const Op& op : ops_) {
    if (arg->kind != op.kind) return -1;
    writer.Put(literals + op.literal_offset, op.literal_length);
    switch (op.kind) {
      case FormatArg::kText: {
        size_t length = arg->text.size();
        if (length > op.precision) length = op.precision;
        writer.Put(arg->text.data(), length);
        break;
      }
      case FormatArg::kInt:
      case FormatArg::kLongLong: {
        long long value = static_cast<long long>(arg->number);
        if (op.kind == FormatArg::kInt) value = static_cast<int>(value);
        unsigned long long magnitude =
            value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
        char* first = WriteDigits(magnitude, digits_end);
        if (value < 0) *--first = '-';
        writer.Put(first, static_cast<size_t>(digits_end - first));
        break;
      }
      case FormatArg::kUnsigned:
      case FormatArg::kUnsignedLongLong: {
        char* first = WriteDigits(arg->number, digits_end);
        writer.Put(first, static_cast<size_t>(digits_end - first));
        break;
      }
    }
    ++arg;
  }
  writer.Put(literals + tail_offset_, tail_length_);
  return static_cast<long>(writer.length());
}

}  // namespace bexo_report
