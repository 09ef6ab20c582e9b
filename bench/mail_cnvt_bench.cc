// mail_cnvt throughput on 1 MB of Japanese text, each beside a well-kept peer
// measured in the same run: AutoDetect beside ICU's charset detector, fromJIS
// beside glibc iconv, to_base64 beside OpenSSL's EVP_EncodeBlock.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <openssl/evp.h>
#include <stdio.h>
#include <stdlib.h>
#include <unicode/ucsdet.h>

#include <map>
#include <string>
#include <vector>

#include "mail_cnvt.h"

namespace {

constexpr size_t kTextBytes = 1 << 20;
constexpr char kSample[] =
    "吾輩は猫である。名前はまだ無い。どこで生れたかとんと見当がつかぬ。何でも薄暗いじめじめした所で"
    "ニャーニャー泣いていた事だけは記憶している。Gateway notice 42: ディスク使用率が上限を超えました。\n";

std::string Iconv(const char* from, const char* to, const std::string& in) {
  iconv_t cd = iconv_open(to, from);
  std::string out(in.size() * 2 + 16, '\0');
  char* src = const_cast<char*>(in.data());
  size_t src_left = in.size();
  char* dst = &out[0];
  size_t dst_left = out.size();
  iconv(cd, &src, &src_left, &dst, &dst_left);
  iconv(cd, nullptr, nullptr, &dst, &dst_left);
  iconv_close(cd);
  out.resize(out.size() - dst_left);
  return out;
}

// The sample repeated to about 1 MB in `charset`, whole lines only.
const std::string& Text(const char* charset) {
  static std::map<std::string, std::string> texts;
  std::string& text = texts[charset];
  if (text.empty()) {
    std::string line = Iconv("UTF-8", charset, kSample);
    while (text.size() + line.size() <= kTextBytes) text += line;
  }
  return text;
}

void SetBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void BM_AutoDetect(benchmark::State& state, const char* charset, int expected) {
  const std::string& text = Text(charset);
  for (auto _ : state) {
    if (AutoDetect(text.c_str()) != expected) state.SkipWithError("wrong detection");
  }
  SetBytes(state, text.size());
}

void BM_IcuDetect(benchmark::State& state, const char* charset) {
  const std::string& text = Text(charset);
  UErrorCode error = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&error);
  for (auto _ : state) {
    ucsdet_setText(detector, text.data(), static_cast<int32_t>(text.size()), &error);
    benchmark::DoNotOptimize(ucsdet_detect(detector, &error));
  }
  if (U_FAILURE(error)) state.SkipWithError(u_errorName(error));
  ucsdet_close(detector);
  SetBytes(state, text.size());
}

void BM_FromJis(benchmark::State& state, int target) {
  std::string text = Text("ISO-2022-JP");
  for (auto _ : state) free(fromJIS(&text[0], target));
  SetBytes(state, text.size());
}

void BM_IconvFromJis(benchmark::State& state, const char* to) {
  const std::string& text = Text("ISO-2022-JP");
  iconv_t cd = iconv_open(to, "ISO-2022-JP");
  std::vector<char> out(text.size() * 2 + 16);
  for (auto _ : state) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* src = const_cast<char*>(text.data());
    size_t src_left = text.size();
    char* dst = out.data();
    size_t dst_left = out.size();
    iconv(cd, &src, &src_left, &dst, &dst_left);
    benchmark::DoNotOptimize(dst);
  }
  iconv_close(cd);
  SetBytes(state, text.size());
}

void BM_ToBase64(benchmark::State& state) {
  const std::string& text = Text("UTF-8");
  for (auto _ : state) free(to_base64(reinterpret_cast<const unsigned char*>(text.data()), text.size(), nullptr));
  SetBytes(state, text.size());
}

// Base64 of the same bytes into a fresh buffer, as to_base64 does (it adds
// line breaks on top).
void BM_OpenSslEncodeBlock(benchmark::State& state) {
  const std::string& text = Text("UTF-8");
  for (auto _ : state) {
    unsigned char* out = static_cast<unsigned char*>(malloc((text.size() + 2) / 3 * 4 + 1));
    EVP_EncodeBlock(out, reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetBytes(state, text.size());
}

BENCHMARK_CAPTURE(BM_AutoDetect, euc, "EUC-JP", 3)->Name("detect/euc/AutoDetect");
BENCHMARK_CAPTURE(BM_IcuDetect, euc, "EUC-JP")->Name("detect/euc/icu_ucsdet");
BENCHMARK_CAPTURE(BM_AutoDetect, sjis, "SHIFT_JIS", 2)->Name("detect/sjis/AutoDetect");
BENCHMARK_CAPTURE(BM_IcuDetect, sjis, "SHIFT_JIS")->Name("detect/sjis/icu_ucsdet");
BENCHMARK_CAPTURE(BM_AutoDetect, jis, "ISO-2022-JP", 1)->Name("detect/jis/AutoDetect");
BENCHMARK_CAPTURE(BM_IcuDetect, jis, "ISO-2022-JP")->Name("detect/jis/icu_ucsdet");
BENCHMARK_CAPTURE(BM_FromJis, sjis, 2)->Name("jis_to/sjis/fromJIS");
BENCHMARK_CAPTURE(BM_IconvFromJis, sjis, "SHIFT_JIS")->Name("jis_to/sjis/iconv");
BENCHMARK_CAPTURE(BM_FromJis, euc, 3)->Name("jis_to/euc/fromJIS");
BENCHMARK_CAPTURE(BM_IconvFromJis, euc, "EUC-JP")->Name("jis_to/euc/iconv");
BENCHMARK(BM_ToBase64)->Name("base64/1MB/to_base64");
BENCHMARK(BM_OpenSslEncodeBlock)->Name("base64/1MB/EVP_EncodeBlock");

// Prints every library figure beside the peer registered right after it.
class SideBySideReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (!run.error_occurred) rates_.emplace_back(run.benchmark_name(), run.counters.at("bytes_per_second").value);
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\nlibrary beside its peer (MB/s, same run):\n");
    for (size_t i = 0; i + 1 < rates_.size(); i += 2) {
      printf("  %-28s %9.1f   %-28s %9.1f   ratio %.2f\n", rates_[i].first.c_str(), rates_[i].second / 1e6,
             rates_[i + 1].first.c_str(), rates_[i + 1].second / 1e6, rates_[i].second / rates_[i + 1].second);
    }
  }

 private:
  std::vector<std::pair<std::string, double>> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  SideBySideReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
