// Loading a URL list of 1M rules into the matcher's user-defined graph from
// the policy database (libpq single-row mode, real PostgreSQL 15 server on a
// Unix socket) next to the same rules from a rule list file, in the same run.
//
// Counters: rows_per_s of each load; after the runs, the ratio of the two and
// the peak memory (VmHWM growth) of each load measured in a fresh forked
// process, so that neither inherits the other's node pool.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>

#include <benchmark/benchmark.h>

#include "UxDbAgent.h"
#include "double_linked_graph.h"
#include "product_path.h"

namespace {

constexpr int kRows = 1000000;
constexpr int kListId = 1;
const std::string kSource = BEXO_SOURCE_DIR;
const std::string kPsql = "/usr/lib/postgresql/15/bin/psql";

std::string g_socket_dir;
std::string g_rule_file;
double g_rate[2];

DbSettings Settings() {
  DbSettings settings;
  settings.host = g_socket_dir;
  settings.port = "5432";
  settings.database = "bench";
  settings.user = "postgres";
  settings.read = true;
  return settings;
}

bool Psql(const std::string& args) {
  return system((kPsql + " -X -q -v ON_ERROR_STOP=1 -h " + g_socket_dir + " -U postgres " + args).c_str()) == 0;
}

// Loads the list once into `graph`: from the database (0) or the file (1).
void Load(int source, double_linked_graph& graph) {
  if (source == 0) {
    UxDbAgent agent(Settings());
    if (graph.init(agent, (kSource + "/sql").c_str(), kListId, 1) != 0 ||
        !graph.deserialize_db(kListId, 1, agent)) {
      abort();
    }
  } else if (!graph.deserialization(g_rule_file.c_str(), false, true)) {
    abort();
  }
  if (graph.size() != kRows) abort();
}

void BM_LoadUrlList(benchmark::State& state) {
  const int source = static_cast<int>(state.range(0));
  for (auto _ : state) {
    auto graph = std::make_unique<double_linked_graph>();
    const auto start = std::chrono::steady_clock::now();
    Load(source, *graph);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    state.PauseTiming();
    graph.reset();
    state.ResumeTiming();
  }
  state.counters["rows_per_s"] = benchmark::Counter(static_cast<double>(kRows) * state.iterations(),
                                                    benchmark::Counter::kIsRate);
  state.SetLabel(source == 0 ? "database" : "rule file");
}
BENCHMARK(BM_LoadUrlList)->Arg(0)->Arg(1)->Iterations(2)->UseManualTime()->Unit(benchmark::kMillisecond);

long StatusKb(const char* key) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, strlen(key), key) == 0) return atol(line.c_str() + strlen(key));
  }
  return -1;
}

// Peak resident growth of one load, in a fresh child process (KiB).
long PeakKb(int source) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    std::ofstream("/proc/self/clear_refs") << "5";  // resets VmHWM
    const long before = StatusKb("VmRSS:");
    double_linked_graph graph;
    Load(source, graph);
    const long peak = StatusKb("VmHWM:") - before;
    ssize_t ignored = write(fds[1], &peak, sizeof peak);
    (void)ignored;
    _exit(0);
  }
  close(fds[1]);
  long peak = -1;
  if (read(fds[0], &peak, sizeof peak) != sizeof peak) peak = -1;
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  return peak;
}

class RateReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto it = run.counters.find("rows_per_s");
      if (it != run.counters.end()) g_rate[run.report_label == "database" ? 0 : 1] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const std::string root = bexo::ProductRoot().empty() ? "/tmp" : bexo::ProductRoot();
  const std::string state = root + "/url_db_load_bench.pg";
  if (system((kSource + "/scripts/test-postgres start " + state).c_str()) != 0) {
    fprintf(stderr, "url_db_load_bench: PostgreSQL did not start; skipped\n");
    return 0;
  }
  g_socket_dir = [&] {
    std::ifstream in(state);
    std::string dir;
    std::getline(in, dir);
    return dir;
  }();
  g_rule_file = root + "/url_db_load_bench.list";
  const bool ready =
      Psql("-d postgres -c 'CREATE DATABASE bench'") && Psql("-d bench -f " + kSource + "/sql/policy_schema.sql") &&
      Psql("-d bench -c \"INSERT INTO tb_url_list VALUES (1, 'bench');"
           " INSERT INTO tb_url_list_entry SELECT 1, 'h' || n || '.site' || (n % 97) || '.example/p' || (n % 13) || '/*'"
           " FROM generate_series(1, " + std::to_string(kRows) + ") n\"") &&
      system(("printf '# rules\\n#\\n#\\n[allow]\\n' > " + g_rule_file).c_str()) == 0 &&
      Psql("-d bench -At -c 'SELECT url FROM tb_url_list_entry ORDER BY url' >> " + g_rule_file);
  if (ready) {
    // Before any load in this process: a child must not inherit a filled node pool.
    const long peak_db = PeakKb(0), peak_file = PeakKb(1);
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (g_rate[0] > 0 && g_rate[1] > 0) {
      printf("database load / rule file load: %.2f (rows/s %.0f vs %.0f)\n", g_rate[0] / g_rate[1], g_rate[0],
             g_rate[1]);
    }
    printf("peak memory growth of one load: database %.1f MiB, rule file %.1f MiB\n", peak_db / 1024.0,
           peak_file / 1024.0);
  }
  system((kSource + "/scripts/test-postgres stop " + state).c_str());
  unlink(g_rule_file.c_str());
  return ready ? 0 : 1;
}
