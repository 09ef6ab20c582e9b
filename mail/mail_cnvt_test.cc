// mail_cnvt against independent implementations: Python's base64, quopri and
// email packages, glibc iconv and ICU.
#include "mail_cnvt.h"

#include <iconv.h>
#include <stdlib.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "mail/mail_cnvt_internal.h"
#include "python_runner.h"
#include "temp_root.h"

namespace {

constexpr char kSample[] =
    "吾輩は猫である。名前はまだ無い。どこで生れたかとんと見当がつかぬ。"
    "カタカナとＡＢＣ、記号「※」も含む。Mail from gateway 42.";

// The bytes of `in` converted by glibc iconv; false when iconv refuses them.
bool Iconv(const char* from, const char* to, const std::string& in, std::string* out) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  std::string buffer(in.size() * 4 + 16, '\0');
  char* src = const_cast<char*>(in.data());
  size_t src_left = in.size();
  char* dst = &buffer[0];
  size_t dst_left = buffer.size();
  bool ok = iconv(cd, &src, &src_left, &dst, &dst_left) != static_cast<size_t>(-1) &&
            iconv(cd, nullptr, nullptr, &dst, &dst_left) != static_cast<size_t>(-1);
  iconv_close(cd);
  if (ok) *out = buffer.substr(0, buffer.size() - dst_left);
  return ok;
}

std::string Take(char* p) {
  std::string s = p ? p : "<null>";
  free(p);
  return s;
}

std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  return out;
}

std::string Unhex(const std::string& hex) {
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return out;
}

std::string Jis(const std::string& utf8) {
  std::string out;
  EXPECT_TRUE(Iconv("UTF-8", "ISO-2022-JP", utf8, &out));
  return out;
}

class MailCnvtTest : public bexo_test::TempRootTest {
 protected:
  // Inputs that exercise the codecs: every byte value, random binary of many
  // lengths, and text lines with CR LF, trailing spaces and long lines.
  std::vector<std::string> Inputs() {
    std::vector<std::string> inputs;
    std::string every;
    for (int i = 0; i < 256; ++i) every += static_cast<char>(i);
    inputs.push_back(every);
    std::mt19937 random(15);
    for (size_t len = 0; len < 200; len += 1 + len / 8) {
      std::string s;
      for (size_t i = 0; i < len; ++i) s += static_cast<char>(random() & 0xff);
      inputs.push_back(s);
    }
    inputs.push_back(std::string(80, 'x'));
    inputs.push_back("line one  \r\nline two\r\n \r\n\t tab=\r\n" + std::string(300, 'y') + "\r");
    inputs.push_back(kSample);
    return inputs;
  }
};

TEST_F(MailCnvtTest, AutoDetect) {
  std::string euc_pair = "\xa4\xa2";
  auto euc_with_stray = [&](int pairs) {
    std::string s;
    for (int i = 0; i < pairs; ++i) s += euc_pair;
    return s + "\x80";
  };
  std::string sjis, euc, jis;
  ASSERT_TRUE(Iconv("UTF-8", "SHIFT_JIS", kSample, &sjis));
  ASSERT_TRUE(Iconv("UTF-8", "EUC-JP", kSample, &euc));
  jis = Jis(kSample);
  const struct {
    std::string text;
    int code;
  } kCases[] = {
      {"", 0},
      {"plain ascii text", 0},
      {"\x1b$B$3$s\x1b(B", 1},
      {"\x1b$B$3$s\x1b(B\xb0\xa1", 3},
      {"\xb1\xb2", 3},
      {"x =?iso-2022-jp?b?GyRC?= y", 4},
      {"=?EUC-JP?Q?=A4=A2?=", 4},
      {"\x1b(I=?EUC-JP?Q?x?=", 1},  // an escape first: the encoded word no longer counts
      {"\x82\xa0", 2},
      {euc_with_stray(11), 3},  // 11 pairs outweigh the stray byte
      {euc_with_stray(10), 3},
      {euc_with_stray(9), 0},
      {"\x82\xa0\x82", 0},
      {sjis, 2},
      {euc, 3},
      {jis, 1},
  };
  for (const auto& c : kCases) EXPECT_EQ(AutoDetect(c.text.c_str()), c.code) << Hex(c.text);
}

TEST_F(MailCnvtTest, Base64AgainstPython) {
  std::vector<std::string> inputs = Inputs();
  std::string hex_lines;
  for (const auto& in : inputs) hex_lines += Hex(in) + "\n";
  std::string python;
  ASSERT_EQ(bexo_test::RunPython(root(), R"(
import base64, sys
for line in sys.stdin:
    data = bytes.fromhex(line.strip())
    print("b" + base64.b64encode(data).decode(), "h" + base64.encodebytes(data).hex())
)",
                                 hex_lines, &python),
            0);
  std::istringstream lines(python);
  for (const auto& in : inputs) {
    std::string standard, python_lines_hex;
    lines >> standard >> python_lines_hex;
    standard.erase(0, 1);
    python_lines_hex.erase(0, 1);
    size_t len = 0;
    std::string ours = Take(to_base64(reinterpret_cast<const unsigned char*>(in.data()), in.size(), &len));
    ASSERT_EQ(ours.size(), len);
    std::string joined;
    for (size_t start = 0; start < ours.size();) {
      size_t crlf = ours.find("\r\n", start);
      ASSERT_NE(crlf, std::string::npos);
      EXPECT_LE(crlf - start, 60u);
      if (crlf + 2 < ours.size()) {
        EXPECT_EQ(crlf - start, 60u) << "only the last line is short";
      }
      joined += ours.substr(start, crlf - start);
      start = crlf + 2;
    }
    EXPECT_EQ(joined, standard) << Hex(in);
    // Python's own line-broken form (76 columns, LF) decodes to the input.
    std::string from_python = Unhex(python_lines_hex);
    size_t out_len = 0;
    unsigned char* decoded =
        from_base64(reinterpret_cast<const unsigned char*>(from_python.data()), from_python.size(), &out_len);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(decoded), out_len), in);
    free(decoded);
  }
  std::string a45(45, 'a');
  std::string line;
  for (int i = 0; i < 15; ++i) line += "YWFh";
  EXPECT_EQ(Take(to_base64(reinterpret_cast<const unsigned char*>(a45.data()), 45, nullptr)), line + "\r\n\r\n");
  EXPECT_EQ(Take(to_base64(reinterpret_cast<const unsigned char*>(""), 0, nullptr)), "\r\n");
}

TEST_F(MailCnvtTest, DecodingPaddingBreaksAndRefusals) {
  const struct {
    bool qprint;  // else base64
    const char* text;
    const char* decoded;  // null: rejected
  } kCases[] = {
      {false, "QQ==", "A"},          {false, "QUI=", "AB"},          {false, "QQ\r\n==", "A"},
      {false, "QUJD\r\nREVG", "ABCDEF"}, {false, "QQ==QUI=", "AAB"}, {false, "Q*U!I=", "AB"},
      {false, "Q===", nullptr},      {false, "QQ=A", nullptr},       {false, "=QQQ", nullptr},
      {false, "QQ= =", nullptr},     {false, "QQ=", nullptr},        {false, "", ""},
      {true, "a  \r\nb", "a\r\nb"},   {true, "a =\r\n \r\n", "a \r\n"}, {true, "a=\r\nb=\rc", "abc"},
      {true, "tail=", "tail"},       {true, "=41=4a=4A", "AJJ"},     {true, "=4", nullptr},
      {true, "=G1", nullptr},        {true, "=\nx", nullptr},
  };
  for (const auto& c : kCases) {
    std::string text = c.text;
    auto* in = reinterpret_cast<unsigned char*>(&text[0]);
    unsigned char* out = c.qprint ? from_qprint(in, text.size(), nullptr) : from_base64(in, text.size(), nullptr);
    EXPECT_EQ(Take(reinterpret_cast<char*>(out)), c.decoded ? c.decoded : "<null>") << c.text;
  }
}

TEST_F(MailCnvtTest, QuotedPrintableAgainstPython) {
  std::vector<std::string> inputs = Inputs();
  std::vector<std::string> ours;
  std::string hex_lines;
  for (const auto& in : inputs) {
    size_t len = 0;
    ours.push_back(Take(to_qprint(reinterpret_cast<const unsigned char*>(in.data()), in.size(), &len)));
    ASSERT_EQ(ours.back().size(), len);
    hex_lines += "h" + Hex(in) + " h" + Hex(ours.back()) + "\n";
  }
  std::string python;
  ASSERT_EQ(bexo_test::RunPython(root(), R"(
import binascii, quopri, sys
for line in sys.stdin:
    data, ours = (bytes.fromhex(f[1:]) for f in line.split())
    theirs = binascii.b2a_qp(data, istext=False).replace(b"=\n", b"=\r\n")
    print("h" + quopri.decodestring(ours).hex(), "h" + theirs.hex())
)",
                                 hex_lines, &python),
            0);
  std::istringstream lines(python);
  for (size_t i = 0; i < inputs.size(); ++i) {
    std::string decoded_by_python, theirs;
    lines >> decoded_by_python >> theirs;
    EXPECT_EQ(decoded_by_python.substr(1), Hex(inputs[i])) << ours[i];
    for (size_t start = 0, end; (end = ours[i].find("\r\n", start)) != std::string::npos; start = end + 2) {
      EXPECT_LE(end - start, 76u) << ours[i];
    }
    std::string encoded = Unhex(theirs.substr(1));
    size_t len = 0;
    std::vector<unsigned char> buffer(encoded.begin(), encoded.end());
    buffer.push_back('\0');
    unsigned char* decoded = from_qprint(buffer.data(), encoded.size(), &len);
    ASSERT_NE(decoded, nullptr) << encoded;
    EXPECT_EQ(Hex(std::string(reinterpret_cast<char*>(decoded), len)), Hex(inputs[i]));
    free(decoded);
  }
  std::string x80(80, 'x');
  EXPECT_EQ(Take(to_qprint(reinterpret_cast<const unsigned char*>(x80.data()), 80, nullptr)),
            std::string(75, 'x') + "=\r\nxxxxx");
}

// Every code point of JIS X 0208 rows 1 to 84 (as ISO-2022-JP) to Shift_JIS
// and EUC-JP, compared with glibc iconv wherever it maps the code point.
TEST_F(MailCnvtTest, FromJisMatchesIconvOverJisX0208) {
  int compared = 0;
  for (int row = 1; row <= 84; ++row) {
    for (int cell = 1; cell <= 94; ++cell) {
      std::string jis = "\x1b$B";
      jis += static_cast<char>(0x20 + row);
      jis += static_cast<char>(0x20 + cell);
      jis += "\x1b(B";
      std::string sjis, euc;
      if (!Iconv("ISO-2022-JP", "SHIFT_JIS", jis, &sjis) || !Iconv("ISO-2022-JP", "EUC-JP", jis, &euc)) continue;
      ++compared;
      EXPECT_EQ(Hex(Take(fromJIS(&jis[0], 2))), Hex(sjis)) << row << "-" << cell;
      EXPECT_EQ(Hex(Take(fromJIS(&jis[0], 3))), Hex(euc)) << row << "-" << cell;
      EXPECT_EQ(Take(fromJIS(&jis[0], 5)), "??");
    }
  }
  EXPECT_GE(compared, 6800);  // JIS X 0208 assigns 6879 of them
  // Half-width katakana (ESC ( I): Shift_JIS single bytes that iconv reads as
  // U+FF61 onwards, and their EUC-JP form behind 0x8E.
  for (int k = 0x21; k <= 0x5f; ++k) {
    std::string in = std::string("\x1b(I") + static_cast<char>(k) + "\x1b(Bz";
    std::string sjis = Take(fromJIS(&in[0], 2));
    std::string utf8, euc;
    ASSERT_TRUE(Iconv("SHIFT_JIS", "UTF-8", sjis, &utf8)) << k;
    char32_t expected = 0xff61 + (k - 0x21);
    EXPECT_EQ(Hex(utf8), Hex(std::string{static_cast<char>(0xe0 | (expected >> 12)),
                                         static_cast<char>(0x80 | ((expected >> 6) & 0x3f)),
                                         static_cast<char>(0x80 | (expected & 0x3f)), 'z'}));
    ASSERT_TRUE(Iconv("SHIFT_JIS", "EUC-JP", sjis, &euc));
    EXPECT_EQ(Hex(Take(fromJIS(&in[0], 3))), Hex(euc));
    EXPECT_EQ(Take(fromJIS(&in[0], 5)), "?z");
  }
}

TEST_F(MailCnvtTest, EncodedWordsMadeByPython) {
  std::string python;
  ASSERT_EQ(bexo_test::RunPython(root(), R"(
import email.header, email.charset as C
text = "日本語テスト"
for cs, enc in (("iso-2022-jp", C.BASE64), ("iso-2022-jp", C.QP), ("shift_jis", C.QP),
                ("shift_jis", C.BASE64), ("euc-jp", C.BASE64), ("euc-jp", C.QP)):
    C.add_charset(cs, enc, None, cs)
    print(email.header.Header(text, cs).encode(), text.encode(cs).hex())
)",
                                 "", &python),
            0);
  std::istringstream lines(python);
  std::string word, hex;
  int words = 0;
  while (lines >> word >> hex) {
    ++words;
    std::string in = "Re: " + word + " " + word + "!";
    std::string decoded = Take(decode_str(&in[0]));
    std::string expected_hex = Hex("Re: ") + hex + Hex(" ") + hex + Hex("!");
    EXPECT_EQ(Hex(decoded), expected_hex) << word;
  }
  EXPECT_EQ(words, 6);
  const struct {
    std::string in;
    std::string out;
  } kCases[] = {
      {"=?EUC-JP?Q?a_b?=", "a_b"},                      // "_" stays
      {"x =?ISO-2022-JP?B?GyRC", "x =?ISO-2022-JP?B?GyRC"},  // unterminated: copied
      {"a=b =?utf-8?B?QQ==?=", "a=b =?utf-8?B?QQ==?="},      // not a recognised prefix
      {"=?ISO-2022-JP?B?QQ=A?=", "<null>"},               // does not decode
      {"=?SHIFT_JIS?Q?=ZZ?=", "<null>"},
  };
  for (const auto& c : kCases) {
    std::string in = c.in;
    EXPECT_EQ(Take(decode_str(&in[0])), c.out) << c.in;
  }
}

TEST_F(MailCnvtTest, EncodeStrWrapsJisRuns) {
  std::string jis = Jis("件名：ディスク");
  std::string b64 = "GyRCN29MPiEnJUclIyU5JS8bKEI=";  // that run, by Python's base64
  const struct {
    std::string in;
    std::string out;
  } kCases[] = {
      {"Re: " + jis + " ok", "Re: =?ISO-2022-JP?B?" + b64 + "?= ok"},
      {"\x1b$@ab\x1b(B", "\x1b$@ab\x1b(B"},  // ESC $ @ does not open a run
      {"a\r\nb\x1b(Bc", "ab\x1b(Bc"},         // CR and LF removed, a lone ESC ( B is text
      {"x\x1b$Bab", "x=?ISO-2022-JP?B?GyRCYWI=?="},  // an unterminated run is closed
      {"", ""},
  };
  for (const auto& c : kCases) {
    std::string in = c.in;
    EXPECT_EQ(Hex(Take(encode_str(&in[0]))), Hex(c.out)) << c.out;
  }
  std::string sample = Jis(kSample);
  std::string encoded = Take(encode_str(&sample[0]));
  EXPECT_EQ(Hex(Take(decode_str(&encoded[0]))), Hex(sample));
}

TEST_F(MailCnvtTest, FromAnyConvertsEveryDetectedEncoding) {
  std::string sjis, euc;
  ASSERT_TRUE(Iconv("UTF-8", "SHIFT_JIS", kSample, &sjis));
  ASSERT_TRUE(Iconv("UTF-8", "EUC-JP", kSample, &euc));
  std::string jis = Jis(kSample);
  std::string mime = Take(encode_str(&jis[0]));
  const struct {
    std::string in;
    int target;
    std::string out;
  } kCases[] = {
      {jis, 2, sjis},  {jis, 3, euc},    {mime, 3, euc},   {mime, 1, jis}, {euc, 3, euc},
      {sjis, 2, sjis}, {sjis, 3, sjis},  // no conversion out of Shift_JIS: passed through
      {jis, 4, mime},  {"", 3, ""},      {"plain", 2, "plain"},
  };
  for (const auto& c : kCases) {
    std::string in = c.in;
    EXPECT_EQ(Hex(Take(fromANY(&in[0], c.target))), Hex(c.out)) << c.target << " " << Hex(c.in);
  }
  std::string in = jis;
  EXPECT_EQ(Hex(Take(toKNJ(&in[0], 1))), Hex(euc));  // the local code starts as EUC-JP
  EXPECT_EQ(Hex(Take(fromKNJ(&in[0], 2))), Hex(sjis));
}

TEST_F(MailCnvtTest, JapaneseProcessingSwitchedOff) {
  setenv("JP_FUNC", "No", 1);
  bexo_mail::ResetJpFuncForTesting();
  std::string jis = Jis(kSample);
  std::string word = "=?EUC-JP?B?xvzL3A==?=";
  EXPECT_EQ(jp_func(), 1);
  EXPECT_EQ(Take(encode_str(&jis[0])), jis);
  EXPECT_EQ(Take(decode_str(&word[0])), word);
  EXPECT_EQ(Take(fromJIS(&jis[0], 3)), jis);
  setenv("JP_FUNC", "", 1);
  bexo_mail::ResetJpFuncForTesting();
  EXPECT_EQ(jp_func(), 0);
  unsetenv("JP_FUNC");
  bexo_mail::ResetJpFuncForTesting();
}

TEST_F(MailCnvtTest, ConvertMailThroughIcu) {
  std::string jis = Jis(kSample);
  std::string sjis;
  ASSERT_TRUE(Iconv("UTF-8", "SHIFT_JIS", kSample, &sjis));
  const struct {
    const char* charset;
    bool reset;
    std::string bytes;  // "<fail>": -1; "<icu>": ICU's own output
  } kCases[] = {
      {"ISO-2022-JP", true, jis + "\x1b(B"},
      {"ISO-2022-JP", false, jis},
      {"ISO-2022-JP-2", true, "<icu>"},
      {"Shift_JIS", true, sjis},
      // Prefixes of "ISO-2022-JP" would count for the appended reset, but ICU
      // knows no converter by such a name.
      {"", true, "<fail>"},
      {"ISO", true, "<fail>"},
      {"no-such-charset", true, "<fail>"},
  };
  for (const auto& c : kCases) {
    char* out = nullptr;
    int rc = ConvertMail(kSample, c.charset, &out, c.reset);
    if (c.bytes == "<fail>") {
      EXPECT_EQ(rc, -1) << c.charset;
      continue;
    }
    ASSERT_EQ(rc, 0) << c.charset;
    ASSERT_NE(out, nullptr);
    std::string text = Take(out);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    size_t len = 0;
    unsigned char* raw = from_base64(reinterpret_cast<const unsigned char*>(text.data()), text.size(), &len);
    std::string bytes(reinterpret_cast<char*>(raw), len);
    free(raw);
    if (c.bytes == "<icu>") {
      EXPECT_NE(bytes.substr(bytes.size() - 6), "\x1b(B\x1b(B") << c.charset;  // no reset appended
      EXPECT_EQ(Hex(bytes.substr(0, 3)), Hex(jis.substr(0, 3)));
    } else {
      EXPECT_EQ(Hex(bytes), Hex(c.bytes)) << c.charset;
    }
  }
}

}  // namespace
