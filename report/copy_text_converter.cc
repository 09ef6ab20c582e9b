#include "report/copy_text_converter.h"

#include <stdio.h>
#include <string.h>

#include <vector>

namespace bexo_report {
namespace {

constexpr size_t kChunkBytes = 64 * 1024;
constexpr size_t kMaxLineBytes = 1024 * 1024;

// Length of the UTF-8 character at `p` (2 to 4), 0 when the bytes are not
// one, -1 when they are a valid beginning cut off by the end of the field.
int CharacterLength(const unsigned char* p, size_t available) {
  const unsigned char lead = p[0];
  int length;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  for (int i = 1; i < length; ++i) {
    if (static_cast<size_t>(i) == available) return -1;
    const unsigned char lo = i == 1 ? low : 0x80;
    const unsigned char hi = i == 1 ? high : 0xBF;
    if (p[i] < lo || p[i] > hi) return 0;
  }
  return length;
}

void AppendField(std::string_view field, std::string& out) {
  static const char kHex[] = "0123456789ABCDEF";
  const unsigned char* p = reinterpret_cast<const unsigned char*>(field.data());
  const size_t n = field.size();
  for (size_t i = 0; i < n;) {
    const unsigned char c = p[i];
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c != 0 && c < 0x80) {
      out += static_cast<char>(c);
    } else {
      const int length = c == 0 ? 0 : CharacterLength(p + i, n - i);
      if (length < 0) break;  // a character cut by the field's width
      if (length > 0) {
        out.append(field.data() + i, static_cast<size_t>(length));
        i += static_cast<size_t>(length);
        continue;
      }
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
    ++i;
  }
}

}  // namespace

bool AppendCopyRow(std::string_view line, int columns, std::string& out) {
  if (line.empty()) return false;
  int column = 0;
  size_t start = 0;
  while (column < columns) {
    const size_t tab = column + 1 < columns ? line.find('\t', start) : std::string_view::npos;
    const std::string_view field = line.substr(start, tab == std::string_view::npos ? tab : tab - start);
    if (column > 0) out += '\t';
    AppendField(field, out);
    ++column;
    if (tab == std::string_view::npos) break;
    start = tab + 1;
  }
  for (; column < columns; ++column) out += "\t\\N";
  out += '\n';
  return true;
}

int64_t ConvertRecordFile(const char* path, int columns,
                          const std::function<bool(const std::string& chunk)>& sink) {
  FILE* fp = fopen(path, "rb");
  if (fp == nullptr) return -1;
  std::vector<char> buffer(kChunkBytes);
  std::string line;
  std::string rows;
  int64_t count = 0;
  bool ok = true;
  auto flush_line = [&] {
    if (AppendCopyRow(line, columns, rows)) ++count;
    line.clear();
    if (rows.size() >= kChunkBytes) {
      ok = sink(rows);
      rows.clear();
    }
  };
  size_t got;
  while (ok && (got = fread(buffer.data(), 1, buffer.size(), fp)) > 0) {
    for (size_t begin = 0; ok && begin < got;) {
      const char* newline = static_cast<const char*>(memchr(buffer.data() + begin, '\n', got - begin));
      const size_t end = newline != nullptr ? static_cast<size_t>(newline - buffer.data()) : got;
      line.append(buffer.data() + begin, end - begin);
      if (line.size() > kMaxLineBytes) ok = false;
      begin = end + 1;
      if (newline != nullptr && ok) flush_line();
    }
  }
  if (ferror(fp)) ok = false;
  fclose(fp);
  if (ok && !line.empty()) flush_line();
  if (ok && !rows.empty()) ok = sink(rows);
  return ok ? count : -1;
}

}  // namespace bexo_report
