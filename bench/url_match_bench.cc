// URL matching on generated rule lists of 10k, 100k and 1M rules (real-looking
// host names x path words, about 16% of rules with '*' and 5% with '?'),
// lookups from one thread. At 10k rules the same URLs are decided by
// Hyperscan and RE2::Set (rules anchored at both ends, '*' as ".*", '?' as
// ".", a trailing "/*" also matching the bare host), side by side.
//
// url_stars_1000B: one lookup of 1000 'a' against "a*a*...*b" with 3, 10
// and 30 stars, and (plain_us, x_plain) against a rule without stars.
//
// url_match/.../threads:2: the same lookups from two threads at once.
// url_reload/N: lookups from one thread while another reloads the list of N
// rules from its file (clearing), beside the same lookups with no reload:
// p50/p99/p99.9/max latency of each.
// model_trie/10k: the plain one-node-per-character trie of the tests
// (tests/support/url_model_trie.h) on the same rules and URLs.
//
// Counters: lookups/s (rate), mean_ns, p50_ns / p99_ns (per-lookup latency
// measured one by one), load_rules_per_s (reading the rule file),
// bytes_per_rule (heap growth of the load), matched (share of URLs that
// found a rule).
#include <malloc.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "tests/support/url_model_trie.h"
#include "url_matching_module.h"
#include "url_rule_serialization_device.h"

#if __has_include(<hs/hs.h>)
#include <hs/hs.h>
#define HAVE_HYPERSCAN 1
#endif
#if __has_include(<re2/set.h>)
#include <re2/re2.h>
#include <re2/set.h>
#define HAVE_RE2 1
#endif

namespace {

using Clock = std::chrono::steady_clock;

const char* const kWords[] = {
    "news",   "shop",    "cloud",  "photo",  "travel", "music",  "video",  "game",   "sport",
    "health", "market",  "bank",   "auto",   "home",   "garden", "food",   "wine",   "book",
    "tech",   "data",    "smart",  "green",  "blue",   "red",    "star",   "sun",    "moon",
    "city",   "world",   "global", "local",  "fast",   "best",   "cheap",  "free",   "mega",
    "super",  "prime",   "alpha",  "nova",   "pixel",  "river",  "stone",  "forest", "ocean",
    "media",  "studio",  "lab",    "hub",    "zone",   "point",  "line",   "net",    "web",
    "mail",   "chat",    "social", "daily",  "times",  "post",   "press",  "radio",  "tv",
    "film",   "art",     "design", "fashion", "style", "beauty", "kids",   "pets",   "craft"};
const char* const kSubdomains[] = {"www", "shop", "cdn", "mail", "news", "api", "static",
                                   "m",   "blog", "img", "login", "static2"};
const char* const kTlds[] = {"com", "net", "org", "de", "jp", "co.uk", "io", "ru", "fr", "biz"};
const char* const kPathWords[] = {
    "index",  "home",    "login",  "account", "cart",   "checkout", "products", "item",
    "search", "article", "images", "static",  "js",     "css",      "api",      "v1",
    "v2",     "user",    "profile", "settings", "help", "about",    "contact",  "download",
    "files",  "video",   "watch",  "play",    "news",   "sports",   "weather",  "blog",
    "post",   "tag",     "category", "page",  "docs",   "report",   "archive",  "media"};

template <size_t N>
const char* Pick(std::mt19937& rng, const char* const (&list)[N]) {
  return list[rng() % N];
}

std::string Domain(std::mt19937& rng) {
  std::string name = Pick(rng, kWords);
  switch (rng() % 3) {
    case 0: name += Pick(rng, kWords); break;
    case 1: name += std::string("-") + Pick(rng, kWords); break;
    default: name += std::to_string(rng() % 1000); break;
  }
  return name + "." + Pick(rng, kTlds);
}

std::string Path(std::mt19937& rng, int depth) {
  std::string path;
  for (int i = 0; i < depth; ++i) path += std::string("/") + Pick(rng, kPathWords);
  return path;
}

struct Generated {
  std::vector<std::string> rules;
  std::vector<std::string> urls;
};

// Rules: per domain a few hosts, per host a few paths. URLs: half derived
// from rules (wildcards filled in), half random pages of known and unknown hosts.
Generated Generate(size_t count) {
  std::mt19937 rng(20240611u + static_cast<unsigned>(count));
  Generated g;
  std::vector<std::string> hosts;
  while (g.rules.size() < count) {
    const std::string domain = Domain(rng);
    const int host_count = 1 + rng() % 3;
    for (int h = 0; h < host_count && g.rules.size() < count; ++h) {
      const std::string host = std::string(Pick(rng, kSubdomains)) + "." + domain;
      hosts.push_back(host);
      const int path_count = 1 + rng() % 6;
      for (int p = 0; p < path_count && g.rules.size() < count; ++p) {
        const unsigned kind = rng() % 100;
        std::string rule;
        if (kind < 6) {
          rule = host + "/*";
        } else if (kind < 10) {
          rule = "*." + domain + "/*";
        } else if (kind < 16) {
          rule = host + Path(rng, 1 + rng() % 2) + "/*";
        } else if (kind < 21) {
          rule = host + Path(rng, 1 + rng() % 2) + "?";
        } else {
          rule = host + Path(rng, 1 + rng() % 3);
        }
        g.rules.push_back(rule);
      }
    }
  }
  std::shuffle(g.rules.begin(), g.rules.end(), rng);
  for (size_t i = 0; i < 20000; ++i) {
    std::string url;
    if (i % 2 == 0) {
      url = g.rules[rng() % g.rules.size()];
      std::string filled;
      for (char c : url) {
        if (c == '*') {
          filled += Path(rng, rng() % 2);
        } else if (c == '?') {
          filled += static_cast<char>('0' + rng() % 10);
        } else {
          filled += c;
        }
      }
      url = filled;
    } else if (i % 4 == 1) {
      url = hosts[rng() % hosts.size()] + Path(rng, 1 + rng() % 3);
    } else {
      url = std::string(Pick(rng, kSubdomains)) + "." + Domain(rng) + Path(rng, rng() % 3);
    }
    g.urls.push_back(url);
  }
  return g;
}

size_t HeapInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

struct Fixture {
  ~Fixture() { unlink(path.c_str()); }
  Generated data;
  std::string path;  // the rule file, kept for reloads
  std::unique_ptr<url_matching_module> module;
  double load_rules_per_s = 0;
  double bytes_per_rule = 0;
  double p50_ns = 0, p99_ns = 0, matched = 0;
};

std::string TempList() {
  const char* root = getenv("BEXO_ROOT");
  return std::string(root && *root ? root : "/tmp") + "/bench-" + std::to_string(getpid()) + ".list";
}

// Built once per size: the rules are written as a file, and the timed load
// reads that file like a daemon does at start.
Fixture& GetFixture(size_t count) {
  static std::mutex building;  // benchmark threads ask at once
  std::lock_guard<std::mutex> hold(building);
  static std::map<size_t, std::unique_ptr<Fixture>> cache;
  std::unique_ptr<Fixture>& slot = cache[count];
  if (slot) return *slot;
  slot.reset(new Fixture);
  Fixture& f = *slot;
  f.data = Generate(count);
  f.path = TempList() + "." + std::to_string(count);
  const std::string& path = f.path;
  {
    url_rule_serialization_device device;
    for (const std::string& r : f.data.rules) device._add_entry(r.c_str(), block_policy, nullptr, nullptr, 0);
    device.serialization(path.c_str());
  }
  malloc_trim(0);
  const size_t before = HeapInUse();
  f.module.reset(new url_matching_module);
  const auto start = Clock::now();
  f.module->deserialization(nullptr, path.c_str(), false, true);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const size_t after = HeapInUse();
  const int stored = f.module->total_size();
  f.load_rules_per_s = count / seconds;
  f.bytes_per_rule = static_cast<double>(after - before) / std::max(stored, 1);

  policies policy;
  std::string rule, id, expiry;
  int list_id;
  std::vector<double> ns;
  ns.reserve(f.data.urls.size());
  size_t matched = 0;
  for (int pass = 0; pass < 2; ++pass) {  // the first pass warms the caches
    ns.clear();
    matched = 0;
    for (const std::string& url : f.data.urls) {
      const auto t0 = Clock::now();
      const find_entry_results r =
          f.module->find_entry(url.c_str(), policy, rule, id, expiry, list_id, false);
      ns.push_back(std::chrono::duration<double, std::nano>(Clock::now() - t0).count());
      matched += r != entry_not_found;
    }
  }
  std::sort(ns.begin(), ns.end());
  f.p50_ns = ns[ns.size() / 2];
  f.p99_ns = ns[ns.size() * 99 / 100];
  f.matched = static_cast<double>(matched) / f.data.urls.size();
  return f;
}

void BM_UrlMatch(benchmark::State& state) {
  Fixture& f = GetFixture(state.range(0));
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  size_t i = state.thread_index() * 7919;
  const auto start = Clock::now();
  for (auto _ : state) {
    const std::string& url = f.data.urls[i++ % f.data.urls.size()];
    benchmark::DoNotOptimize(
        f.module->find_entry(url.c_str(), policy, rule, id, expiry, list_id, false));
  }
  const double ns = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
  state.counters["lookups/s"] = benchmark::Counter(state.iterations(), benchmark::Counter::kIsRate);
  state.counters["mean_ns"] = benchmark::Counter(ns / state.iterations(),
                                                 benchmark::Counter::kAvgThreads);
  // Figures of the one-thread fixture, the same for every thread.
  const auto shared = [](double value) {
    return benchmark::Counter(value, benchmark::Counter::kAvgThreads);
  };
  state.counters["p50_ns"] = shared(f.p50_ns);
  state.counters["p99_ns"] = shared(f.p99_ns);
  state.counters["load_rules_per_s"] = shared(f.load_rules_per_s);
  state.counters["bytes_per_rule"] = shared(f.bytes_per_rule);
  state.counters["matched"] = shared(f.matched);
}
BENCHMARK(BM_UrlMatch)->Name("url_match/10k")->Arg(10000);
BENCHMARK(BM_UrlMatch)->Name("url_match/100k")->Arg(100000);
BENCHMARK(BM_UrlMatch)->Name("url_match/1M")->Arg(1000000)->MinTime(0.5);
BENCHMARK(BM_UrlMatch)->Name("url_match/10k")->Arg(10000)->Threads(2);
BENCHMARK(BM_UrlMatch)->Name("url_match/100k")->Arg(100000)->Threads(2);
BENCHMARK(BM_UrlMatch)->Name("url_match/1M")->Arg(1000000)->Threads(2)->MinTime(0.5);

struct Latency {
  std::vector<double> ns;
  void Report(benchmark::State& state, const char* prefix) {
    std::sort(ns.begin(), ns.end());
    const auto at = [&](double q) { return ns[std::min(ns.size() - 1, size_t(q * ns.size()))]; };
    state.counters[std::string(prefix) + "p50_ns"] = at(0.5);
    state.counters[std::string(prefix) + "p99_ns"] = at(0.99);
    state.counters[std::string(prefix) + "p99.9_ns"] = at(0.999);
    state.counters[std::string(prefix) + "max_ns"] = ns.back();
  }
};

// One by one lookups until `stop` (or `count` of them when stop is null).
void TimeLookups(Fixture& f, const std::atomic<bool>* stop, size_t count, Latency& out) {
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  for (size_t i = 0; stop != nullptr ? !stop->load() : i < count; ++i) {
    const std::string& url = f.data.urls[i % f.data.urls.size()];
    const auto t0 = Clock::now();
    benchmark::DoNotOptimize(
        f.module->find_entry(url.c_str(), policy, rule, id, expiry, list_id, false));
    out.ns.push_back(std::chrono::duration<double, std::nano>(Clock::now() - t0).count());
  }
}

void BM_UrlReload(benchmark::State& state) {
  Fixture& f = GetFixture(state.range(0));
  Latency idle, reloading;
  double reload_s = 0;
  for (auto _ : state) {
    std::atomic<bool> done{false};
    std::thread loader([&] {
      const auto t0 = Clock::now();
      f.module->deserialization(nullptr, f.path.c_str(), false, true);
      reload_s = std::chrono::duration<double>(Clock::now() - t0).count();
      done = true;
    });
    TimeLookups(f, &done, 0, reloading);
    loader.join();
    TimeLookups(f, nullptr, reloading.ns.size(), idle);
  }
  idle.Report(state, "idle_");
  reloading.Report(state, "reload_");
  state.counters["reload_s"] = reload_s;
}
BENCHMARK(BM_UrlReload)->Name("url_reload/100k")->Arg(100000)->Iterations(3)->UseRealTime();
BENCHMARK(BM_UrlReload)->Name("url_reload/1M")->Arg(1000000)->Iterations(2)->UseRealTime();


// The costly case for a backtracking search: "a*a*...*b" with 3, 10 and 30
// stars against 1000 'a', beside a plain rule of the same length (999 'a' and
// a 'b') missing the same URL, timed in the same run.
struct StarLookup {
  url_matching_module module;
  std::string url = std::string(1000, 'a');
};

double MicrosPerLookup(url_matching_module& module, const std::string& url, int count) {
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  const auto t0 = Clock::now();
  for (int i = 0; i < count; ++i) {
    benchmark::DoNotOptimize(
        module.find_entry(url.c_str(), policy, rule, id, expiry, list_id, false));
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / count;
}

void BM_UrlStars(benchmark::State& state) {
  const int stars = static_cast<int>(state.range(0));
  std::string rule = "a";
  for (int i = 1; i < stars; ++i) rule += "*a";
  rule += "*b";
  StarLookup costly, plain;
  costly.module.add_entry(rule.c_str(), block_policy, nullptr, nullptr);
  plain.module.add_entry((std::string(999, 'a') + "b").c_str(), block_policy, nullptr, nullptr);
  policies policy;
  std::string found, id, expiry;
  int list_id;
  for (auto _ : state) {
    benchmark::DoNotOptimize(costly.module.find_entry(costly.url.c_str(), policy, found, id,
                                                      expiry, list_id, false));
  }
  const double costly_us = MicrosPerLookup(costly.module, costly.url, 200);
  const double plain_us = MicrosPerLookup(plain.module, plain.url, 200);
  state.counters["us_per_lookup"] = costly_us;
  state.counters["plain_us"] = plain_us;
  state.counters["x_plain"] = costly_us / plain_us;
}
BENCHMARK(BM_UrlStars)->Name("url_stars_1000B")->Arg(3)->Arg(10)->Arg(30)->MinTime(0.2);

// The peers see the same normalised URL the matcher sees.
const char* Normalised(const std::string& url, char* buffer) {
  return _to_lower_and_url_decode(url.c_str(), buffer, 1024, true) ? buffer : url.c_str();
}

std::string RuleToRegex(const std::string& rule) {
  std::string body = rule;
  bool bare_host_too = body.size() >= 2 && body.compare(body.size() - 2, 2, "/*") == 0;
  if (bare_host_too) body.resize(body.size() - 2);
  std::string regex = "^";
  for (char c : body) {
    if (c == '*') {
      regex += ".*";
    } else if (c == '?') {
      regex += ".";
    } else if (isalnum(static_cast<unsigned char>(c)) || c == '/' || c == '-' || c == '_') {
      regex += c;
    } else {
      regex += '\\';
      regex += c;
    }
  }
  return regex + (bare_host_too ? "(/.*)?$" : "$");
}

template <typename Match>
void RunPeer(benchmark::State& state, const Fixture& f, Match match) {
  char buffer[1024];
  size_t i = 0, matched = 0;
  std::vector<double> ns;
  for (const std::string& url : f.data.urls) {
    const auto t0 = Clock::now();
    matched += match(Normalised(url, buffer));
    ns.push_back(std::chrono::duration<double, std::nano>(Clock::now() - t0).count());
  }
  std::sort(ns.begin(), ns.end());
  for (auto _ : state) {
    const std::string& url = f.data.urls[i++ % f.data.urls.size()];
    benchmark::DoNotOptimize(match(Normalised(url, buffer)));
  }
  state.counters["lookups/s"] = benchmark::Counter(state.iterations(), benchmark::Counter::kIsRate);
  state.counters["p50_ns"] = ns[ns.size() / 2];
  state.counters["p99_ns"] = ns[ns.size() * 99 / 100];
  state.counters["matched"] = static_cast<double>(matched) / f.data.urls.size();
}

// The plain model trie of the tests as a peer (it normalises the URL itself).
void BM_ModelTrie(benchmark::State& state) {
  Fixture& f = GetFixture(state.range(0));
  malloc_trim(0);
  const size_t before = HeapInUse();
  bexo_test::UrlModelTrie model;
  for (const std::string& r : f.data.rules) model.Add(r.c_str(), block_policy, nullptr, nullptr, 0);
  const double bytes_per_rule = static_cast<double>(HeapInUse() - before) / model.Size();
  RunPeer(state, f, [&](const char* url) { return model.Find(url, false).result != entry_not_found; });
  state.counters["bytes_per_rule"] = bytes_per_rule;
}
BENCHMARK(BM_ModelTrie)->Name("model_trie/10k")->Arg(10000)->MinTime(0.3);

#ifdef HAVE_HYPERSCAN
// Every rule is a regex anchored with "^...$" (a trailing "/*" as two: the
// bare host and "host/.*"). Hyperscan's compile time grows much faster than
// the pattern count (one database of the 10k rules did not compile within
// five minutes here), so the rules are compiled in databases of 256 patterns
// and a lookup scans them until one matches.
struct HyperscanDb {
  hs_database_t* db = nullptr;
  hs_scratch_t* scratch = nullptr;
  ~HyperscanDb() {
    hs_free_scratch(scratch);
    hs_free_database(db);
  }
};

struct HyperscanPeer {
  std::vector<std::unique_ptr<HyperscanDb>> chunks;
  double compile_s = 0;
  std::string error;
};

// Compiled once: Google Benchmark calls the function more than once.
const HyperscanPeer& GetHyperscan(const Fixture& f) {
  static std::unique_ptr<HyperscanPeer> peer;
  if (peer) return *peer;
  peer.reset(new HyperscanPeer);
  std::vector<std::string> regexes;
  for (const std::string& r : f.data.rules) {
    if (r.size() >= 2 && r.compare(r.size() - 2, 2, "/*") == 0) {
      const std::string host = RuleToRegex(r.substr(0, r.size() - 2));
      regexes.push_back(host);
      regexes.push_back(host.substr(0, host.size() - 1) + "/.*$");
    } else {
      regexes.push_back(RuleToRegex(r));
    }
  }
  const auto t0 = Clock::now();
  constexpr size_t kChunk = 256;
  for (size_t first = 0; first < regexes.size(); first += kChunk) {
    const size_t count = std::min(kChunk, regexes.size() - first);
    std::vector<const char*> texts;
    std::vector<unsigned> flags(count, HS_FLAG_SINGLEMATCH | HS_FLAG_DOTALL), ids(count, 0);
    for (size_t k = first; k < first + count; ++k) texts.push_back(regexes[k].c_str());
    peer->chunks.emplace_back(new HyperscanDb);
    HyperscanDb& chunk = *peer->chunks.back();
    hs_compile_error_t* error = nullptr;
    if (hs_compile_multi(texts.data(), flags.data(), ids.data(), count, HS_MODE_BLOCK, nullptr,
                         &chunk.db, &error) != HS_SUCCESS) {
      peer->error = error->message;
      hs_free_compile_error(error);
      break;
    }
    hs_alloc_scratch(chunk.db, &chunk.scratch);
  }
  peer->compile_s = std::chrono::duration<double>(Clock::now() - t0).count();
  return *peer;
}

void BM_Hyperscan(benchmark::State& state) {
  const Fixture& f = GetFixture(state.range(0));
  const HyperscanPeer& peer = GetHyperscan(f);
  if (!peer.error.empty()) {
    state.SkipWithError(peer.error.c_str());
    return;
  }
  auto on_match = [](unsigned, unsigned long long, unsigned long long, unsigned, void* hit) {
    *static_cast<bool*>(hit) = true;
    return 1;  // the first match decides
  };
  RunPeer(state, f, [&](const char* url) {
    const unsigned length = static_cast<unsigned>(strlen(url));
    bool hit = false;
    for (size_t c = 0; c < peer.chunks.size() && !hit; ++c) {
      hs_scan(peer.chunks[c]->db, url, length, 0, peer.chunks[c]->scratch, on_match, &hit);
    }
    return hit;
  });
  state.counters["compile_s"] = peer.compile_s;
}
BENCHMARK(BM_Hyperscan)->Name("hyperscan/10k")->Arg(10000)->MinTime(0.3);
#endif

#ifdef HAVE_RE2
struct Re2Peer {
  std::unique_ptr<RE2::Set> set;
  double compile_s = 0;
  bool ok = false;
};

const Re2Peer& GetRe2(const Fixture& f) {
  static std::unique_ptr<Re2Peer> peer;
  if (peer) return *peer;
  peer.reset(new Re2Peer);
  RE2::Options options;
  options.set_max_mem(int64_t{1} << 30);
  options.set_log_errors(false);
  peer->set.reset(new RE2::Set(options, RE2::ANCHOR_BOTH));
  for (const std::string& r : f.data.rules) {
    const std::string pattern = RuleToRegex(r);
    peer->set->Add(pattern.substr(1, pattern.size() - 2), nullptr);  // anchored by the set
  }
  const auto t0 = Clock::now();
  peer->ok = peer->set->Compile();
  peer->compile_s = std::chrono::duration<double>(Clock::now() - t0).count();
  return *peer;
}

void BM_Re2Set(benchmark::State& state) {
  const Fixture& f = GetFixture(state.range(0));
  const Re2Peer& peer = GetRe2(f);
  if (!peer.ok) {
    state.SkipWithError("RE2::Set compile failed");
    return;
  }
  RunPeer(state, f, [&](const char* url) { return peer.set->Match(url, nullptr); });
  state.counters["compile_s"] = peer.compile_s;
}
BENCHMARK(BM_Re2Set)->Name("re2set/10k")->Arg(10000)->MinTime(0.3);
#endif

}  // namespace

BENCHMARK_MAIN();
