// Localized text lookups: the preloaded static-string map beside a plain
// std::unordered_map of the same entries, and beside UxResBundle, which reads
// the bundle through ICU on every call; placeholder filling beside ICU's
// MessageFormat.
#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>

#include "BEXOLocalizedStaticStrings.h"
#include "UxResBundle.h"

namespace {

const char* kBundles[] = {"events", "daemon"};

BEXOLocalizedStaticStrings& Strings() {
  static BEXOLocalizedStaticStrings strings("ja", BEXO_RESOURCE_DIR, kBundles, 2);
  return strings;
}

void BM_LocalizedStaticStrings_Get(benchmark::State& state) {
  BEXOLocalizedStaticStrings& strings = Strings();
  for (auto _ : state) {
    benchmark::DoNotOptimize(strings.GetLocalizedString("events", "tbl_Service", "tok_Stopped", nullptr));
  }
}

// The same composed key and entries in a standard map.
void BM_StdUnorderedMap_Get(benchmark::State& state) {
  std::unordered_map<std::string, std::string> map;
  Strings().ForEachString([&](const char* key, const char* text) { map[key] = text; });
  for (auto _ : state) {
    std::string key = std::string("events") + "/" + "tbl_Service" + "/" + "tok_Stopped";
    benchmark::DoNotOptimize(map.find(key)->second.c_str());
  }
}

void BM_UxResBundle_GetUTF8String(benchmark::State& state) {
  UxResBundle bundle(BEXO_RESOURCE_DIR "/events", "ja");
  char output[UxResBundle::kUTF8OutputSize];
  for (auto _ : state) {
    if (!bundle.getUTF8String("tbl_Service", "tok_Stopped", output)) state.SkipWithError("lookup failed");
    benchmark::DoNotOptimize(output);
  }
}

void BM_FormatLocalizedString(benchmark::State& state) {
  const char* pattern = Strings().GetLocalizedString("events", "tbl_Service", "tok_Stopped", nullptr);
  const char* arguments[] = {"proxy", "137"};
  char output[512];
  for (auto _ : state) {
    BEXOLocalizedStaticStrings::FormatLocalizedString(pattern, output, sizeof output, 2, arguments);
    benchmark::DoNotOptimize(output);
  }
}

void BM_UxResBundle_MessageFormat(benchmark::State& state) {
  UxResBundle bundle(BEXO_RESOURCE_DIR "/events", "ja");
  icu::Formattable arguments[2];
  UxResBundle::getFormattable("proxy", &arguments[0]);
  UxResBundle::getFormattable("137", &arguments[1]);
  char output[512];
  for (auto _ : state) {
    if (!bundle.getFormattedUTF8String("tbl_Service", "tok_Stopped", arguments, 2, output, sizeof output)) {
      state.SkipWithError("format failed");
    }
    benchmark::DoNotOptimize(output);
  }
}

}  // namespace

BENCHMARK(BM_LocalizedStaticStrings_Get);
BENCHMARK(BM_StdUnorderedMap_Get);
BENCHMARK(BM_UxResBundle_GetUTF8String);
BENCHMARK(BM_FormatLocalizedString);
BENCHMARK(BM_UxResBundle_MessageFormat);

BENCHMARK_MAIN();
