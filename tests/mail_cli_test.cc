// bexo mail, bexo jp and bexo core as a script sees them.
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "python_runner.h"
#include "resource_bundles.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::RunCommand;
using bexo_test::WriteFile;

class MailCliTest : public bexo_test::TempRootTest {};

int Bexo(const std::string& args, std::string* out) { return bexo_test::RunBexo(args + " 2>/dev/null", out); }

TEST_F(MailCliTest, PutListShowGiveAMessagePythonReads) {
  std::string queue = root() + "/mailq";
  mkdir(queue.c_str(), 0755);
  std::string attachment(70000, '\0');
  for (size_t i = 0; i < attachment.size(); ++i) attachment[i] = static_cast<char>(i * 7 + i / 251);
  WriteFile(root() + "/report.bin", attachment);
  std::string spool;
  ASSERT_EQ(Bexo("mail put --dir " + queue + " --from gw@example.com --to a@example.com,,b@example.com " +
                     "--subject 'ディスク警告' --attach " + root() + "/report.bin 'first line\nsecond line'",
                 &spool),
            0);
  ASSERT_EQ(spool.rfind(queue + "/KOML", 0), 0u) << spool;
  spool.pop_back();  // the line feed
  std::string name = spool.substr(queue.size() + 1);

  std::string listing;
  EXPECT_EQ(Bexo("mail list " + queue, &listing), 0);
  struct stat st;
  ASSERT_EQ(stat(spool.c_str(), &st), 0);
  EXPECT_EQ(listing, name + "\tgw@example.com\ta@example.com,b@example.com\tディスク警告\t" +
                         std::to_string(st.st_size) + "\tfree\n");
  WriteFile(queue + "/LOCK." + name, "");
  EXPECT_EQ(Bexo("mail list " + queue, &listing), 0);
  EXPECT_NE(listing.find("\tlocked "), std::string::npos) << listing;  // and its age in seconds

  std::string message;
  ASSERT_EQ(Bexo("mail show " + spool, &message), 0);
  std::string python;
  ASSERT_EQ(bexo_test::RunPython(root(), R"(
import email, email.policy, sys
msg = email.message_from_bytes(sys.stdin.buffer.read(), policy=email.policy.default)
print(msg["From"], msg["To"], msg["Subject"], len(msg.defects))
for part in msg.iter_parts():
    if part.get_filename():
        open(")" + root() + R"(/decoded.bin", "wb").write(part.get_payload(decode=True))
    else:
        print(repr(part.get_content()))
)",
                                 message, &python),
            0);
  EXPECT_EQ(python, "gw@example.com a@example.com, b@example.com ディスク警告 0\n'first line\\r\\nsecond line\\r\\n'\n");
  EXPECT_TRUE(ReadFile(root() + "/decoded.bin") == attachment);

  const char* kUsageErrors[] = {"mail", "mail put --dir /x", "mail list", "mail frob x"};
  for (const char* args : kUsageErrors) EXPECT_EQ(Bexo(args, nullptr), 2) << args;
  EXPECT_EQ(Bexo("mail put --dir " + queue + " --from a --to b --attach /no/such/file", nullptr), 1);
}

TEST_F(MailCliTest, JpDetectAndConvert) {
  std::string utf8 = root() + "/ja.txt";
  WriteFile(utf8, "日本語のテキスト、カタカナ有り。");
  for (const char* charset : {"ISO-2022-JP", "SHIFT_JIS", "EUC-JP"}) {
    ASSERT_EQ(RunCommand(std::string("iconv -f UTF-8 -t ") + charset + " " + utf8 + " > " + root() + "/" +
                             charset,
                         nullptr),
              0);
  }
  const struct {
    std::string args;
    std::string output;
  } kCases[] = {
      {"jp detect " + root() + "/ISO-2022-JP", "1 ISO-2022-JP\n"},
      {"jp detect " + root() + "/SHIFT_JIS", "2 Shift_JIS\n"},
      {"jp detect " + root() + "/EUC-JP", "3 EUC-JP\n"},
      {"jp detect - < /dev/null", "0 none\n"},
      {"jp convert --to euc " + root() + "/ISO-2022-JP", ReadFile(root() + "/EUC-JP")},
      {"jp convert --to sjis " + root() + "/ISO-2022-JP", ReadFile(root() + "/SHIFT_JIS")},
  };
  std::string out;
  for (const auto& c : kCases) {
    EXPECT_EQ(Bexo(c.args, &out), 0) << c.args;
    EXPECT_EQ(out, c.output) << c.args;
  }
  EXPECT_EQ(Bexo("jp convert --to mime " + root() + "/ISO-2022-JP", &out), 0);
  EXPECT_EQ(out.rfind("=?ISO-2022-JP?B?", 0), 0u) << out;
  EXPECT_EQ(Bexo("jp convert --to latin1 -", nullptr), 2);
  EXPECT_EQ(Bexo("jp detect /no/such/file", nullptr), 1);
}

TEST_F(MailCliTest, CoreCheckAndPackage) {
  std::string product = root() + "/usr/bexo";
  std::filesystem::create_directories(product + "/cores");
  std::filesystem::create_directories(root() + "/mailq");
  std::filesystem::copy_file(std::string(BEXO_SOURCE_DIR) + "/examples/PackageCore.sh", product + "/PackageCore.sh");
  bexo_test::InstallResourceBundles(root());
  WriteFile(product + "/morvane.ini", "[debug]\ncore_path=" + product + "/cores\n[notification]\n" +
                                          "send_coredump_mail=true\nmail_queue_path=" + root() + "/mailq\n");
  std::string out;
  EXPECT_EQ(Bexo("core check " + product + "/cores", &out), 1);
  EXPECT_EQ(out, "no core files\n");
  EXPECT_EQ(Bexo("core package " + product, &out), 1);
  WriteFile(product + "/cores/core_77", "core");
  EXPECT_EQ(Bexo("core check " + product + "/cores", &out), 0);
  EXPECT_EQ(Bexo("core package " + product, &out), 0);
  ASSERT_EQ(out.rfind("package: " + product + "/dump_file_", 0), 0u) << out;
  EXPECT_EQ(out.substr(out.size() - 21), "_0000\nnotice: queued\n") << out;
  EXPECT_EQ(Bexo("core package " + product, &out), 1);  // the script removed the packaged core
  EXPECT_EQ(Bexo("core", nullptr), 2);
}

TEST_F(MailCliTest, NotifyQueuesTheLocalizedTexts) {
  bexo_test::InstallResourceBundles(root());
  std::string queue = root() + "/mailq";
  std::filesystem::create_directories(queue);
  std::string ini = root() + "/product.ini";
  WriteFile(ini, "[notification]\nfrom_addr=gw@x\nto_addr=ops,admin\nmail_queue_path=" + queue + "\n");
  const struct {
    const char* lang;
    std::string spool;
  } kCases[] = {
      {"en", "F gw@x\nT ops\nT admin\nD \nS Gateway run finished: 5 requests replayed\n"
             "B The gateway replayed 5 requests through the request path.\n"
             "B Access and blocking records were written to the report files under /logs.\nR 0\n"},
      {"ja", "F gw@x\nT ops\nT admin\nD \nS ゲートウェイの実行が完了しました: 5 件のリクエストを再生\n"
             "B ゲートウェイは 5 件のリクエストをリクエスト経路で再生しました。\n"
             "B アクセスおよびブロックの記録は /logs のレポートファイルに書き込まれました。\nR 0\n"},
  };
  for (const auto& c : kCases) {
    WriteFile(Path("/etc/kvelo/morvane.ini"), std::string("[Common]\nlang=") + c.lang + "\n");
    std::string spool;
    ASSERT_EQ(Bexo("mail notify --ini " + ini + " --node nod_RunReport --bundle mail 5 /logs", &spool), 0);
    ASSERT_FALSE(spool.empty());
    spool.pop_back();
    EXPECT_EQ(ReadFile(spool), c.spool) << c.lang;
    std::filesystem::remove(spool);
  }
  EXPECT_EQ(Bexo("mail notify --ini " + ini + " --node nod_Missing", nullptr), 1);
  EXPECT_EQ(Bexo("mail notify --node nod_RunReport", nullptr), 2);
}

}  // namespace
