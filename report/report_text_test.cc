// The block scans of the record text helpers against plain byte loops, for
// every short length and every position of the byte they look for, with the
// text placed right before an unreadable page: a scan that reads past the
// page would fault.
#include "report/report_text.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

namespace {

class GuardedPage {
 public:
  GuardedPage() {
    size_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    base_ = static_cast<char*>(mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (base_ != MAP_FAILED) mprotect(base_ + size_, size_, PROT_NONE);
  }
  ~GuardedPage() {
    if (base_ != MAP_FAILED) munmap(base_, 2 * size_);
  }
  bool ok() const { return base_ != MAP_FAILED; }
  // `text` copied so that its last byte is the last readable one.
  char* AtEnd(const std::string& text) {
    char* at = base_ + size_ - text.size();
    memcpy(at, text.data(), text.size());
    return at;
  }

 private:
  size_t size_ = 0;
  char* base_ = static_cast<char*>(MAP_FAILED);
};

TEST(ReportTextTest, PlainPrefixFindsTheFirstEscapedByteWithoutReadingPastTheText) {
  GuardedPage page;
  ASSERT_TRUE(page.ok());
  for (char special : std::string("&<>%\r")) {
    for (size_t length = 0; length <= 40; ++length) {
      for (size_t at = 0; at <= length; ++at) {  // at == length: none
        std::string text(length, 'a');
        if (at < length) text[at] = special;
        SCOPED_TRACE(testing::Message() << "length " << length << " special at " << at);
        EXPECT_EQ(bexo_report::PlainPrefix(page.AtEnd(text), length), at);
        EXPECT_EQ(bexo_report::PlainPrefix(text.data(), length), at);
      }
    }
  }
}

TEST(ReportTextTest, ScrubbedFieldStopsAtTheTerminatorBeforeAnUnreadablePage) {
  GuardedPage page;
  ASSERT_TRUE(page.ok());
  for (size_t length = 0; length <= 40; ++length) {
    std::string clean(length, 'b');
    EXPECT_EQ(bexo_report::ScrubbedField(page.AtEnd(clean + '\0')).view(), clean);
    if (length == 0) continue;
    std::string tabbed = clean;
    tabbed[length / 2] = '\t';
    std::string expected = clean;
    expected[length / 2] = ' ';
    EXPECT_EQ(bexo_report::ScrubbedField(page.AtEnd(tabbed + '\0')).view(), expected);
  }
}

}  // namespace
