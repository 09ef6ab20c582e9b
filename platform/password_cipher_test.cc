// The enciphered database password: round trip, a fresh nonce each time,
// tampering detected, and a key file anyone else can read is refused.
#include "password_cipher.h"

#include <sys/stat.h>

#include <string>

#include "temp_root.h"

namespace {

class PasswordCipherTest : public bexo_test::TempRootTest {
 protected:
  std::string Seal(const std::string& plain) {
    char out[4096];
    return NewEncryptStr(plain.c_str(), out, sizeof out) >= 0 ? out : "(failed)";
  }
  std::string Open(const std::string& sealed) {
    char out[1024];
    return NewDecryptStr(sealed.c_str(), out, sizeof out) >= 0 ? out : "(failed)";
  }
};

TEST_F(PasswordCipherTest, RoundTripsAndRefusesWhatIsNotOurs) {
  const std::string passwords[] = {"p", "with blank and 'quote'", "\xe6\x97\xa5\xe6\x9c\xac", std::string(1023, 'x')};
  for (const std::string& p : passwords) {
    const std::string sealed = Seal(p);
    EXPECT_EQ(0u, sealed.find("v1:"));
    if (p.size() >= 8) {
      EXPECT_EQ(std::string::npos, sealed.find(p.substr(0, 8))) << "the password shows through";
    }
    EXPECT_EQ(p, Open(sealed));
    EXPECT_NE(sealed, Seal(p)) << "same nonce twice";
  }
  EXPECT_EQ("(failed)", Seal(std::string(1024, 'x')));
  EXPECT_EQ("", Open(""));

  std::string sealed = Seal("secret");
  std::string tampered = sealed;
  tampered[10] = tampered[10] == 'A' ? 'B' : 'A';
  const std::string refused[] = {tampered, sealed.substr(0, sealed.size() - 4), "v1:", "secret",
                                 "v1:!!!!", "v2" + sealed.substr(2)};
  for (const std::string& text : refused) EXPECT_EQ("(failed)", Open(text)) << text;
  char small[4];
  EXPECT_EQ(-1, NewDecryptStr(sealed.c_str(), small, sizeof small));
  EXPECT_STREQ("", small);
}

TEST_F(PasswordCipherTest, KeyFileMustBeTheOwnersAlone) {
  const std::string sealed = Seal("secret");
  const std::string key = Path(kPasswordKeyFile);
  struct stat st;
  ASSERT_EQ(0, stat(key.c_str(), &st));
  EXPECT_EQ(0400u, st.st_mode & 0777);
  EXPECT_EQ(32, st.st_size);
  ASSERT_EQ(0, chmod(key.c_str(), 0440));
  EXPECT_EQ("(failed)", Open(sealed));
  ASSERT_EQ(0, chmod(key.c_str(), 0600));
  EXPECT_EQ("secret", Open(sealed));
  ASSERT_EQ(0, unlink(key.c_str()));
  EXPECT_EQ("(failed)", Open(sealed));
  EXPECT_NE("(failed)", Seal("x")) << "a missing key is made again";
  EXPECT_EQ("(failed)", Open(sealed)) << "but the old text needs the old key";
}

}  // namespace
