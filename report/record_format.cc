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

class Writer {
 public:
  Writer(char* out, size_t capacity) : out_(out), capacity_(capacity) {}

  void Put(const char* data, size_t length) {
    if (length_ + length <= capacity_) {
      memcpy(out_ + length_, data, length);
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
  auto add_literal = [this](const char* text, size_t length) {
    if (!ops_.empty() && ops_.back().literal) {
      ops_.back().length += static_cast<uint32_t>(length);
    } else {
      ops_.push_back(Op{FormatArg::kText, true, static_cast<uint32_t>(literals_.size()),
                        static_cast<uint32_t>(length), 0});
    }
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
    if (strncmp(p, "s", 1) == 0) {
      kind = FormatArg::kText, p += 1;
    } else if (strncmp(p, "d", 1) == 0) {
      kind = FormatArg::kInt, p += 1;
    } else if (strncmp(p, "u", 1) == 0) {
      kind = FormatArg::kUnsigned, p += 1;
    } else if (strncmp(p, "lld", 3) == 0) {
      kind = FormatArg::kLongLong, p += 3;
    } else if (strncmp(p, "llu", 3) == 0) {
      kind = FormatArg::kUnsignedLongLong, p += 3;
    } else {
      valid_ = false;  // outside the dialect: Format refuses every call
      return;
    }
    ops_.push_back(Op{kind, false, 0, 0, precision});
  }
}

long RecordFormat::Format(char* out, size_t capacity, const FormatArg* args, size_t count) const {
  Writer writer(out, capacity);
  size_t next = 0;
  char digits[24];
  char* const digits_end = digits + sizeof digits;
  if (!valid_) return -1;
  for (const Op& op : ops_) {
    if (op.literal) {
      writer.Put(literals_.data() + op.offset, op.length);
      continue;
    }
    if (next >= count || args[next].kind != op.kind) return -1;
    const FormatArg& arg = args[next++];
    switch (op.kind) {
      case FormatArg::kText: {
        size_t length = arg.text.size();
        if (length > op.precision) length = op.precision;
        writer.Put(arg.text.data(), length);
        break;
      }
      case FormatArg::kInt:
      case FormatArg::kLongLong: {
        long long value = static_cast<long long>(arg.number);
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
        char* first = WriteDigits(arg.number, digits_end);
        writer.Put(first, static_cast<size_t>(digits_end - first));
        break;
      }
    }
  }
  if (next != count) return -1;
  return static_cast<long>(writer.length());
}

}  // namespace bexo_report
