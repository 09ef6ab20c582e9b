// String growth, splitting, file-name parts and the platform-name shims.
#include "UxString.h"

#include <errno.h>
#include <limits.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "UxLog.h"
#include "unix_shims.h"

namespace {

TEST(StringTest, CapacityIsLengthPlus128RoundedDown) {
  const struct {
    int length;
    int capacity;
  } kCases[] = {{0, 128}, {1, 128}, {127, 128}, {128, 256}, {255, 256}, {256, 384}, {1000, 1024}};
  for (const auto& c : kCases) {
    String s(std::string(c.length, 'a').c_str());
    EXPECT_EQ(s.length(), c.length);
    EXPECT_EQ(s.capacity(), c.capacity) << "length " << c.length;
  }
  EXPECT_EQ(String().capacity(), 128);
  EXPECT_EQ(String(nullptr).length(), 0);
}

TEST(StringTest, AppendGrowsAtCapacityAndLogsTheReallocation) {
  std::vector<std::string> messages;
  UxLog::setLevel(3);
  UxLog::setSink([&](const UxLogRecord& r) { messages.push_back(std::string(r.file) + ": " + r.text); });
  String s(std::string(127, 'a').c_str());
  EXPECT_EQ(s.capacity(), 128);
  s += "b";
  EXPECT_EQ(s.capacity(), 256);
  EXPECT_EQ(s.length(), 128);
  EXPECT_EQ(std::string(s.c_str()), std::string(127, 'a') + "b");
  s = std::string(300, 'c').c_str();
  EXPECT_EQ(s.capacity(), 384);
  UxLog::setSink(nullptr);
  EXPECT_EQ(messages, (std::vector<std::string>{"UxString: String::operator+= - before delete",
                                                "UxString: String::operator= - before delete"}));
}

TEST(StringTest, AssignmentAndAppendEdgeCases) {
  String s("abc");
  s = s.c_str();  // own buffer: nothing happens
  EXPECT_STREQ(s, "abc");
  s += nullptr;
  EXPECT_STREQ(s, "abc");
  s += s.c_str();  // appending itself
  EXPECT_STREQ(s, "abcabc");
  s = nullptr;
  EXPECT_STREQ(s, "");
  String copy(String("xyz") + "!");
  EXPECT_STREQ(copy, "xyz!");
  String assigned;
  assigned = copy;
  EXPECT_STREQ(assigned, "xyz!");
}

TEST(StringTest, RangeConstructorAndMake) {
  const char* text = "hello world";
  EXPECT_STREQ(String(text, text + 4), "hello");
  EXPECT_STREQ(String(text + 4, text), "");
  String out("previous");
  String(text).make(-5, 5, out);
  EXPECT_STREQ(out, "hello");
  String(text).make(6, 100, out);
  EXPECT_STREQ(out, "world");
  String(text).make(7, 3, out);
  EXPECT_STREQ(out, "");
}

TEST(StringTest, StreamsCharactersAndIntegers) {
  String s;
  s << 0 << ',' << -42 << ',' << 1234567 << ',' << INT_MIN << ',' << INT_MAX;
  EXPECT_STREQ(s, "0,-42,1234567,-2147483648,2147483647");
}

std::vector<std::string> Split(const char* source, const char* delimiters) {
  List<String> list;
  list.append(String("stale"));
  StringMan::split(String(source), list, delimiters);
  std::vector<std::string> tokens;
  for (auto* node = list.head(); node; node = node->next) tokens.emplace_back(node->value.c_str());
  EXPECT_EQ(list.count(), static_cast<int>(tokens.size()));
  return tokens;
}

TEST(StringManTest, Split) {
  using V = std::vector<std::string>;
  EXPECT_EQ(Split("  a,,b, c", ","), (V{"a", "b", " c"}));
  EXPECT_EQ(Split("\t x y  z ", " "), (V{"x", "y", "z"}));
  EXPECT_EQ(Split(",,,", ","), V{});
  EXPECT_EQ(Split("", ","), V{});
  EXPECT_EQ(Split("a;b:c", ";:"), (V{"a", "b", "c"}));
  EXPECT_EQ(Split("  lead", "x"), (V{"lead"}));
}

TEST(PathTest, BaseAndExtension) {
  const struct {
    const char* path;
    char separator;
    int cut;
    const char* base;
    const char* extension;  // null: none
  } kCases[] = {
      {"/var/x/file.txt", '/', 0, "file.txt", "txt"},
      {"archive.tar.gz", '/', 0, "archive.tar.gz", "gz"},
      {"noext", '/', 0, "noext", nullptr},
      {"/dir.d/noext", '/', 0, "noext", nullptr},
      {"C:\\dir\\f", '\\', 1, "C", nullptr},
      {"C:\\dir\\f.doc", '\\', 0, "f.doc", "doc"},
      {"a/b?c.txt", '/', 1, "b", nullptr},
      {"trailing/", '/', 0, "", nullptr},
  };
  for (const auto& c : kCases) {
    std::string for_base = c.path;
    EXPECT_STREQ(Path::findbaseptr(&for_base[0], c.separator, c.cut), c.base) << c.path;
    std::string for_ext = c.path;
    char* extension = Path::findextptr(&for_ext[0], c.separator, c.cut);
    if (c.extension == nullptr) {
      EXPECT_EQ(extension, nullptr) << c.path;
    } else {
      EXPECT_STREQ(extension, c.extension) << c.path;
    }
  }
  EXPECT_EQ(Path::findbaseptr(nullptr, '/', 0), nullptr);
  EXPECT_EQ(Path::findextptr(nullptr, '/', 0), nullptr);
}

TEST(PathTest, LongExtensionIsCutTo64InPlace) {
  std::string path = "file." + std::string(100, 'e');
  char* extension = Path::findextptr(&path[0], '/', 0);
  EXPECT_EQ(std::string(extension), std::string(64, 'e'));
  EXPECT_EQ(strlen(path.c_str()), 5u + 64u);
}

TEST(UnixSpecificTest, ErrorCodesAreErrno) {
  errno = ENOENT;
  EXPECT_EQ(GetLastError(), ENOENT);
  errno = EPIPE;
  EXPECT_EQ(WSAGetLastError(), EPIPE);
}

}  // namespace
