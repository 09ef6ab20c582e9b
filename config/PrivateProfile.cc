#include "PrivateProfile.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "bexo_util.h"

namespace {

// Lines are read in pieces of at most kLineSize - 1 characters.
constexpr unsigned kLineSize = 4098;
constexpr size_t kMaxPathLength = 259;
constexpr char kUtf8Bom[] = "\xEF\xBB\xBF";

char* SkipSpace(char* text) {
  while (*text != '\0' && isspace(static_cast<unsigned char>(*text))) ++text;
  return text;
}

// Copies `source` up to `terminator` (or its end), trimmed at both ends, at
// most size - 1 characters and a NUL; returns the count copied. A source that
// begins with the terminator yields that single character, so "=x" has the
// key "=".
unsigned GetStringFromBuffer(const char* source, char* destination, unsigned size,
                             char terminator) {
  if (size == 0) return 0;
  const char* end = source;
  if (*end == terminator) {
    ++end;
  } else {
    while (*end != '\0' && *end != terminator) ++end;
  }
  while (source < end && isspace(static_cast<unsigned char>(*source))) ++source;
  while (end > source && isspace(static_cast<unsigned char>(end[-1]))) --end;
  unsigned length = static_cast<unsigned>(end - source);
  if (length > size - 1) length = size - 1;
  memcpy(destination, source, length);
  destination[length] = '\0';
  return length;
}

bool ReadLine(FILE* file, char* line) { return fgets(line, kLineSize, file) != nullptr; }

bool IsSectionHeader(char* line) { return *SkipSpace(line) == '['; }

// The header rule every function shares, the writer included: a header line
// (after a byte order mark when it is the first line of a search) gives the
// text after "[" and white space, or null for any other line.
char* SectionHeaderText(char* line, bool first_line) {
  if (first_line && strncmp(line, kUtf8Bom, 3) == 0) line += 3;
  char* text = SkipSpace(line);
  return *text == '[' ? SkipSpace(text + 1) : nullptr;
}

// Reads up to the next section header; returns its header text, or null at
// the end of the file.
char* GetNextSection(FILE* file, char* line) {
  bool first = true;
  while (ReadLine(file, line)) {
    if (char* text = SectionHeaderText(line, first)) return text;
    first = false;
  }
  return nullptr;
}

// The name from a header text: up to the first "]", trimmed. A text that
// starts with "]" (as in "[ ]") names the section "]".
unsigned SectionName(const char* header_text, char* name) {
  return GetStringFromBuffer(header_text, name, kLineSize, ']');
}

bool FindIniFileSection(FILE* file, const char* section) {
  char line[kLineSize];
  char name[kLineSize];
  while (char* text = GetNextSection(file, line)) {
    SectionName(text, name);
    if (strcasecmp(name, section) == 0) return true;
  }
  return false;
}

// The next key line of the current section (white space skipped), or null at
// the next section header or the end of the file.
char* FindNextKey(FILE* file, char* line) {
  while (ReadLine(file, line)) {
    char* text = SkipSpace(line);
    if (*text == '[') return nullptr;
    if (*text != '\0' && *text != ';') return text;
  }
  return nullptr;
}

bool KeyMatches(const char* key_line, const char* key) {
  char name[kLineSize];
  GetStringFromBuffer(key_line, name, sizeof name, '=');
  return strcasecmp(name, key) == 0;
}

bool FindKeyValue(FILE* file, const char* key, char* value, unsigned size, unsigned& length) {
  char line[kLineSize];
  while (char* text = FindNextKey(file, line)) {
    if (!KeyMatches(text, key)) continue;
    const char* equals = strchr(text, '=');
    length = GetStringFromBuffer(equals ? equals + 1 : "", value, size, '\n');
    return true;
  }
  return false;
}

// Appends `name` (length `length`) and a NUL to a name list at `*position`.
// When it does not fit, as much as fits in all but the last three places is
// copied, the last two places become NUL and false is returned.
bool AppendName(char* buffer, unsigned size, unsigned* position, const char* name,
                unsigned length) {
  if (*position + length + 1 <= size - 1) {
    memcpy(buffer + *position, name, length);
    buffer[*position + length] = '\0';
    *position += length + 1;
    return true;
  }
  if (size >= 3 && *position < size - 3) {
    unsigned room = size - 3 - *position;
    memcpy(buffer + *position, name, length < room ? length : room);
  }
  for (unsigned i = size >= 2 ? size - 2 : 0; i < size; ++i) buffer[i] = '\0';
  *position = size >= 2 ? size - 2 : 0;
  return false;
}

unsigned GetAllSectionNames(FILE* file, char* buffer, unsigned size) {
  char line[kLineSize];
  char name[kLineSize];
  unsigned position = 0;
  while (char* text = GetNextSection(file, line)) {
    unsigned length = SectionName(text, name);
    if (!AppendName(buffer, size, &position, name, length)) break;
  }
  return position;
}

unsigned GetAllKeyNames(FILE* file, char* buffer, unsigned size) {
  char line[kLineSize];
  char name[kLineSize];
  unsigned position = 0;
  while (char* text = FindNextKey(file, line)) {
    unsigned length = GetStringFromBuffer(text, name, sizeof name, '=');
    unsigned before = position;
    if (!AppendName(buffer, size, &position, name, length)) break;
    // The entry is the whole rest of the line, its line feed included; the
    // next entry overwrites it from the key's length plus one, so the
    // character after the key stays as the separator.
    size_t rest = strlen(text);
    size_t room = size - 1 - before;
    if (rest > room) rest = room;
    memcpy(buffer + before, text, rest);
    buffer[before + rest] = '\0';
  }
  return position;
}

void EnsureLineEnd(FILE* out, bool at_line_start) {
  if (!at_line_start) fputc('\n', out);
}

}  // namespace

int GetPrivateProfileString(const char* section, const char* key, const char* default_value,
                            char* buffer, unsigned size, const char* path) {
  if (buffer == nullptr || size == 0) return 0;
  buffer[size - 1] = '\0';
  strncpy(buffer, default_value ? default_value : "", size - 1);
  const int default_length = static_cast<int>(strlen(buffer));
  FILE* file = path ? fopen(path, "r") : nullptr;
  if (file == nullptr) return default_length;
  int result = default_length;
  if (section == nullptr) {
    result = static_cast<int>(GetAllSectionNames(file, buffer, size));
  } else if (FindIniFileSection(file, section)) {
    if (key == nullptr) {
      result = static_cast<int>(GetAllKeyNames(file, buffer, size));
    } else {
      unsigned length = 0;
      if (FindKeyValue(file, key, buffer, size, length)) result = static_cast<int>(length);
    }
  }
  fclose(file);
  return result;
}

int GetPrivateProfileInt(const char* section, const char* key, int default_value,
                         const char* path) {
  char value[32];
  int length = GetPrivateProfileString(section, key, "NotFound", value, sizeof value, path);
  if (length == 30 || strcmp(value, "NotFound") == 0) return default_value;
  // Saturates at the 32-bit range, as strtol does where long has 32 bits.
  long long number = strtoll(value, nullptr, 10);
  if (number > INT32_MAX) return INT32_MAX;
  if (number < INT32_MIN) return INT32_MIN;
  return static_cast<int>(number);
}

int WritePrivateProfileString(const char* section, const char* key, const char* value,
                              const char* path) {
  if (section == nullptr || path == nullptr || strlen(path) >= kMaxPathLength) return 0;
  char backup[kMaxPathLength + 2];
  bexo_snprintf(backup, sizeof backup, "%s-", path);
  unlink(backup);
  if (link(path, backup) != 0 || unlink(path) != 0) return 0;

  FILE* out = fopen(path, "w");
  FILE* in = fopen(backup, "r");
  if (out == nullptr || in == nullptr) {
    if (out) fclose(out);
    if (in) fclose(in);
    return 0;
  }

  char line[kLineSize];
  char name[kLineSize];
  bool changed = false;
  bool at_line_start = true;  // whether the last line written ended in a line feed
  auto copy = [&](const char* text) {
    fputs(text, out);
    size_t length = strlen(text);
    if (length > 0) at_line_start = text[length - 1] == '\n';
  };
  auto write_key = [&] {
    EnsureLineEnd(out, at_line_start);
    fprintf(out, "%s=%s\n", key, value);
    at_line_start = true;
  };

  bool have_line = ReadLine(in, line);
  bool first_line = true;
  while (have_line) {
    char* header = SectionHeaderText(line, first_line);
    first_line = false;
    if (changed || header == nullptr || (SectionName(header, name), strcasecmp(name, section) != 0)) {
      copy(line);
      have_line = ReadLine(in, line);
      continue;
    }
    // At the target section's header.
    if (key == nullptr) {
      // Drop the header and the body; the next header is handled by the loop.
      while ((have_line = ReadLine(in, line)) && !IsSectionHeader(line)) {
      }
      changed = true;
      continue;
    }
    copy(line);
    while ((have_line = ReadLine(in, line)) && !IsSectionHeader(line)) {
      char* key_text = SkipSpace(line);
      if (*key_text != '\0' && *key_text != ';' && KeyMatches(key_text, key)) {
        if (value != nullptr) write_key();
        changed = true;
        have_line = ReadLine(in, line);
        break;
      }
      copy(line);
    }
    if (!changed && value != nullptr) {
      // The section ended without the key: add it before the next header.
      write_key();
      changed = true;
    }
  }
  if (!changed && value != nullptr) {
    EnsureLineEnd(out, at_line_start);
    fprintf(out, "[%s]\n%s=%s\n", section, key, value);
  }

  fclose(in);
  // The backup goes only once the new file is safely written; otherwise it
  // still holds the configuration.
  bool failed = ferror(out) != 0;
  if (fclose(out) != 0 || failed) return 0;
  unlink(backup);
  return 1;
}
