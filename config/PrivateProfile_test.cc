// INI profile functions: reads, name lists, writes (exact bytes) and the
// backup-name rewrite, on real files under a temp product root.
#include "PrivateProfile.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include "forked_children.h"
#include "temp_root.h"

namespace {

using bexo_test::FileExists;
using bexo_test::ReadFile;
using bexo_test::WriteFile;

class PrivateProfileTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    file_ = Path("/etc/kvelo/test.ini");
  }
  std::string file_;
};

struct ReadCase {
  const char* name;
  const char* content;
  const char* section;
  const char* key;
  const char* expected;
  int length;
};

const ReadCase kReadCases[] = {
    {"trimmed value", "[Main]\n  Port = 8080  \n", "main", "PORT", "8080", 4},
    {"first of duplicate keys", "[A]\nk=1\nk=2\n", "A", "k", "1", 1},
    {"first of duplicate sections", "[A]\nk=1\n[a]\nk=2\n", "A", "k", "1", 1},
    {"semicolon comment", "[A]\n; Port=1\n", "A", "; Port", "dflt", 4},
    {"hash is a key", "[A]\n# Port=1\n", "A", "# Port", "1", 1},
    {"no inline comments", "[A]\nk = v ; not a comment\n", "A", "k", "v ; not a comment", 17},
    {"line without equals", "[A]\nflag\n", "A", "flag", "", 0},
    {"equals at line start is the key '='", "[A]\n=x\n", "A", "=", "x", 1},
    {"value keeps later equals", "[A]\nurl=a=b\n", "A", "url", "a=b", 3},
    {"byte order mark", "\xEF\xBB\xBF[Main]\nk=v\n", "Main", "k", "v", 1},
    {"section name trimmed", "[  Spaced Name  ]\nk=v\n", "spaced name", "k", "v", 1},
    {"header without closing bracket", "[Open\nk=v\n", "Open", "k", "v", 1},
    {"missing section", "[A]\nk=v\n", "B", "k", "dflt", 4},
    {"missing key", "[A]\nk=v\n", "A", "x", "dflt", 4},
    {"key of next section not seen", "[A]\n[B]\nk=v\n", "A", "k", "dflt", 4},
    {"CRLF line ends", "[A]\r\nk = v\r\n", "A", "k", "v", 1},
    {"no final line feed", "[A]\nk=last", "A", "k", "last", 4},
};

TEST_F(PrivateProfileTest, ReadsValues) {
  for (const ReadCase& c : kReadCases) {
    WriteFile(file_, c.content);
    char buffer[128];
    int length = GetPrivateProfileString(c.section, c.key, "dflt", buffer, sizeof buffer, file_.c_str());
    EXPECT_STREQ(buffer, c.expected) << c.name;
    EXPECT_EQ(length, c.length) << c.name;
  }
}

TEST_F(PrivateProfileTest, MissingFileGivesDefault) {
  char buffer[16];
  EXPECT_EQ(GetPrivateProfileString("A", "k", "default", buffer, sizeof buffer,
                                    Path("/etc/kvelo/none.ini").c_str()),
            7);
  EXPECT_STREQ(buffer, "default");
  EXPECT_EQ(GetPrivateProfileString("A", "k", "default", nullptr, 16, file_.c_str()), 0);
  EXPECT_EQ(GetPrivateProfileString("A", "k", "default", buffer, 0, file_.c_str()), 0);
}

TEST_F(PrivateProfileTest, ValueAndDefaultAreBoundedBySize) {
  WriteFile(file_, "[A]\nk=abcdefghij\n");
  char buffer[5];
  EXPECT_EQ(GetPrivateProfileString("A", "k", "", buffer, sizeof buffer, file_.c_str()), 4);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(GetPrivateProfileString("A", "x", "0123456789", buffer, sizeof buffer, file_.c_str()), 4);
  EXPECT_STREQ(buffer, "0123");
}

TEST_F(PrivateProfileTest, LongLinesAreReadInPieces) {
  // A line longer than the 4097-character read buffer continues as a new line.
  std::string tail = "key2=second";
  WriteFile(file_, "[A]\nk=" + std::string(4095, 'x') + tail + "\n");
  char buffer[64];
  EXPECT_EQ(GetPrivateProfileString("A", "key2", "", buffer, sizeof buffer, file_.c_str()), 6);
  EXPECT_STREQ(buffer, "second");
}

std::vector<std::string> SplitList(const char* buffer, int length) {
  std::vector<std::string> names;
  for (int pos = 0; pos < length;) {
    names.emplace_back(buffer + pos);
    pos += names.back().size() + 1;
  }
  return names;
}

TEST_F(PrivateProfileTest, SectionNameListInFileOrderWithDuplicates) {
  WriteFile(file_, "[One]\n[ Two ]\n[one]\nx=[not]\n");
  char buffer[64];
  int length = GetPrivateProfileString(nullptr, nullptr, "", buffer, sizeof buffer, file_.c_str());
  EXPECT_EQ(length, 12);
  EXPECT_EQ(SplitList(buffer, length), (std::vector<std::string>{"One", "Two", "one"}));
  EXPECT_EQ(buffer[length], '\0');  // the empty name that ends the list
}

TEST_F(PrivateProfileTest, NameListTruncatesToSizeMinusTwo) {
  WriteFile(file_, "[Alpha]\n[Bravo]\n[Charlie]\n");
  // "Alpha\0Bravo\0" is 12; "Charlie" does not fit in 16: four characters go
  // into the places before the last three, and the last two become NUL.
  char buffer[16];
  memset(buffer, '#', sizeof buffer);
  int length = GetPrivateProfileString(nullptr, nullptr, "", buffer, sizeof buffer, file_.c_str());
  EXPECT_EQ(length, 14);
  EXPECT_EQ(std::string(buffer, 12), std::string("Alpha\0Bravo\0", 12));
  EXPECT_EQ(buffer[12], 'C');
  EXPECT_EQ(buffer[14], '\0');
  EXPECT_EQ(buffer[15], '\0');
}

struct KeyListCase {
  const char* section;
  const char* content;
  std::string expected;  // the bytes up to the result
};

TEST_F(PrivateProfileTest, KeyListSeparatorIsTheCharacterAfterTheKey) {
  // Entries start after each key and its separator; each copies the rest of
  // its line, line feed included.
  const KeyListCase cases[] = {
      {"A", "[A]\nPort=8080\n; comment\nHost = x\nflag\n[B]\nother=1\n", "Port=Host flag\n"},
      {"S", "[S]\nflag\nk=1\n", "flag\nk="},
  };
  for (const KeyListCase& c : cases) {
    WriteFile(file_, c.content);
    char buffer[64];
    int length = GetPrivateProfileString(c.section, nullptr, "", buffer, sizeof buffer, file_.c_str());
    EXPECT_EQ(std::string(buffer, length), c.expected) << c.content;
  }
}

struct IntCase {
  const char* key;
  int expected;  // with the default 5
};

TEST_F(PrivateProfileTest, GetIntReadsLeadingDigitsSaturatesAndKeepsTheLength30Rule) {
  WriteFile(file_, "[A]\nport=8080\nneg=-12\nmixed=42abc\nword=abc\nthirty=" + std::string(30, '7') +
                       "\nthirtyone=" + std::string(31, '1') +
                       "\nbig=9999999999\nsmall=-9999999999\nmissing_value\nliteral=NotFound\n");
  const IntCase cases[] = {
      {"PORT", 8080},         {"neg", -12},     {"mixed", 42},          {"word", 0},
      {"thirty", 5},          {"thirtyone", INT_MAX}, {"big", INT_MAX}, {"small", INT_MIN},
      {"missing_value", 0},   {"literal", 5},   {"absent", 5},
  };
  for (const IntCase& c : cases) {
    EXPECT_EQ(GetPrivateProfileInt("a", c.key, 5, file_.c_str()), c.expected) << c.key;
  }
  EXPECT_EQ(GetPrivateProfileInt("A", "port", 5, Path("/etc/kvelo/none.ini").c_str()), 5);
}

struct WriteCase {
  const char* name;
  const char* before;
  const char* section;
  const char* key;
  const char* value;
  const char* after;
};

const WriteCase kWriteCases[] = {
    {"replace value", "[A]\nk=1\nj=2\n", "a", "K", "9", "[A]\nK=9\nj=2\n"},
    {"replace only the first duplicate", "[A]\nk=1\nk=2\n", "A", "k", "9", "[A]\nk=9\nk=2\n"},
    {"add key before next section", "[A]\nx=1\n[B]\ny=2\n", "A", "k", "v", "[A]\nx=1\nk=v\n[B]\ny=2\n"},
    {"add key at end of last section", "[A]\nx=1\n", "A", "k", "v", "[A]\nx=1\nk=v\n"},
    {"add key after unterminated line", "[A]\nx=1", "A", "k", "v", "[A]\nx=1\nk=v\n"},
    {"new section appended", "[A]\nx=1\n", "New", "k", "v", "[A]\nx=1\n[New]\nk=v\n"},
    {"delete key", "[A]\nk=1\nj=2\n", "A", "k", nullptr, "[A]\nj=2\n"},
    {"delete missing key changes nothing", "[A]\nj=2\n", "A", "k", nullptr, "[A]\nj=2\n"},
    {"delete key in a later duplicate section", "[A]\nj=1\n[A]\nk=2\n", "A", "k", nullptr, "[A]\nj=1\n[A]\n"},
    {"delete section", "; top\n[A]\nk=1\n; c\n[B]\nj=2\n", "A", nullptr, nullptr, "; top\n[B]\nj=2\n"},
    {"delete last section", "[B]\nj=2\n[A]\nk=1\n", "A", nullptr, nullptr, "[B]\nj=2\n"},
    {"comments and other sections kept", "; c\n[B]\nb=1\n[A]\n; k=0\nk=1\n", "A", "k", "2", "; c\n[B]\nb=1\n[A]\n; k=0\nk=2\n"},
    {"null key and value deletes the section only", "[A]\nk=1\n", "A", nullptr, "ignored", ""},
    {"blank inside brackets is the section ']'", "[ ]\nk=1\n", "]", "k", "2", "[ ]\nk=2\n"},
    {"'[ ]' is not the empty name", "[ ]\nk=1\n[\nk=1\n", "", nullptr, nullptr, "[ ]\nk=1\n"},
    {"byte order mark before the first header", "\xEF\xBB\xBF[Main]\nk=1\n", "Main", "k", "2",
     "\xEF\xBB\xBF[Main]\nk=2\n"},
};

TEST_F(PrivateProfileTest, WritesExactBytes) {
  for (const WriteCase& c : kWriteCases) {
    WriteFile(file_, c.before);
    EXPECT_EQ(WritePrivateProfileString(c.section, c.key, c.value, file_.c_str()), 1) << c.name;
    EXPECT_EQ(ReadFile(file_), c.after) << c.name;
    EXPECT_FALSE(FileExists(file_ + "-")) << c.name << ": backup left behind";
  }
}

TEST_F(PrivateProfileTest, WriteRefusals) {
  std::string missing = Path("/etc/kvelo/missing.ini");
  EXPECT_EQ(WritePrivateProfileString("A", "k", "v", missing.c_str()), 0);
  EXPECT_FALSE(FileExists(missing));
  EXPECT_FALSE(FileExists(missing + "-"));

  WriteFile(file_, "[A]\n");
  EXPECT_EQ(WritePrivateProfileString(nullptr, "k", "v", file_.c_str()), 0);
  std::string long_path = root() + "/" + std::string(259 - root().size() - 1, 'p');
  ASSERT_EQ(long_path.size(), 259u);
  WriteFile(long_path, "[A]\n");
  EXPECT_EQ(WritePrivateProfileString("A", "k", "v", long_path.c_str()), 0);
  EXPECT_EQ(ReadFile(long_path), "[A]\n");
}

TEST_F(PrivateProfileTest, StaleBackupIsReplaced) {
  WriteFile(file_, "[A]\nk=1\n");
  WriteFile(file_ + "-", "stale");
  EXPECT_EQ(WritePrivateProfileString("A", "k", "2", file_.c_str()), 1);
  EXPECT_EQ(ReadFile(file_), "[A]\nk=2\n");
  EXPECT_FALSE(FileExists(file_ + "-"));
}

// Runs one write in a child whose descriptor limit leaves `free_descriptors`
// descriptors to open, so the rewrite fails at the chosen open.
int WriteWithDescriptorLimit(const std::string& file, int free_descriptors) {
  return bexo_test::WaitExit(bexo_test::Spawn([&] {
    for (int fd = 3; fd < 1024; ++fd) close(fd);
    struct rlimit limit = {static_cast<rlim_t>(3 + free_descriptors),
                           static_cast<rlim_t>(3 + free_descriptors)};
    setrlimit(RLIMIT_NOFILE, &limit);
    return WritePrivateProfileString("A", "k", "2", file.c_str());
  }));
}

TEST_F(PrivateProfileTest, FailedRewriteLeavesConfigurationUnderBackupName) {
  const std::string original = "[A]\nk=1\n";
  // No descriptor at all: the new file cannot be opened.
  WriteFile(file_, original);
  EXPECT_EQ(WriteWithDescriptorLimit(file_, 0), 0);
  EXPECT_FALSE(FileExists(file_));
  EXPECT_EQ(ReadFile(file_ + "-"), original);

  // One descriptor: the new (empty) file opens, the backup cannot.
  unlink((file_ + "-").c_str());
  WriteFile(file_, original);
  EXPECT_EQ(WriteWithDescriptorLimit(file_, 1), 0);
  EXPECT_EQ(ReadFile(file_), "");
  EXPECT_EQ(ReadFile(file_ + "-"), original);
}

}  // namespace
