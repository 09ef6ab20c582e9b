// Request/reply round trips through CommonIPCClient and CommonIPCServer,
// beside a floor measured in the same run: a minimal thread-per-connection
// Unix-socket echo server with a minimal blocking client, speaking the same
// framing. Each round trip is one connection, as in the library.
//
// Library and floor round trips alternate within every iteration (see
// BM_RoundTrip), so a busy machine slows both alike. Counters: bexo_rt/s and
// floor_rt/s are round trips per second (all client threads together),
// share_% the first as a share of the second, *_p50_us and *_p99_us latency
// percentiles per thread, averaged over the threads.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CommonIPCClient.h"
#include "CommonIPCServer.h"
#include "ipc/ipc_iovec.h"
#include "product_path.h"
#include "tests/support/ipc_test_util.h"

namespace {

constexpr int kPort = 9101;
// Medians of many short repetitions: steadier on a shared machine than a few long ones.
constexpr int kRepetitions = 9;

std::string Echo(std::string request) { return request; }

// --- the floor --------------------------------------------------------------

bool WriteFrame(int fd, const void* header, const void* body, size_t body_size) {
  iovec parts[2] = {{const_cast<void*>(header), 4}, {const_cast<void*>(body), body_size}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = body_size > 0 ? 2 : 1;
  while (message.msg_iovlen > 0) {
    ssize_t n = sendmsg(fd, &message, MSG_NOSIGNAL);
    if (n <= 0) return false;
    bexo::SkipSentBytes(&message, n);
  }
  return true;
}

void FloorServe(int fd) {
  uint32_t length;
  if (bexo_test::ReadExactly(fd, &length, 4)) {
    std::vector<char> body(length);
    if (bexo_test::ReadExactly(fd, body.data(), length)) WriteFrame(fd, &length, body.data(), length);
  }
  close(fd);
}

std::string FloorPath() { return bexo::ProductPath("/var/bexo/floor.sock"); }

void StartFloorServer() {
  sockaddr_un address = bexo_test::UnixAddress(FloorPath());
  bexo::MakeParentDirectories(address.sun_path);
  unlink(address.sun_path);
  int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 128) != 0) {
    perror("floor server");
    exit(1);
  }
  std::thread([listener] {
    for (;;) {
      int fd = accept(listener, nullptr, nullptr);
      if (fd >= 0) std::thread(FloorServe, fd).detach();
    }
  }).detach();
}

// The reply lands in `buffer`, reused from one round trip to the next.
bool FloorRoundTrip(const std::string& request, std::string* buffer, size_t* reply_size) {
  static const std::string path = FloorPath();
  int fd = bexo_test::ConnectUnix(path);
  bool ok = fd >= 0;
  uint32_t length = static_cast<uint32_t>(request.size());
  ok = ok && WriteFrame(fd, &length, request.data(), request.size()) && bexo_test::ReadExactly(fd, &length, 4);
  if (ok) {
    buffer->resize(length);
    ok = bexo_test::ReadExactly(fd, &(*buffer)[0], length);
    *reply_size = length;
  }
  if (fd >= 0) close(fd);
  return ok;
}

// --- the library ----------------------------------------------------------------

// The reply is used where the client put it, as the floor's is: copying it
// out would time the benchmark, not the library.
bool BexoRoundTrip(const std::string& request, std::string*, size_t* reply_size) {
  BEXO::CommonIPCClient client;
  client.SetupConnection(kPort);
  BEXO::CommonIPCMsgHeader header;
  header.length = static_cast<uint32_t>(request.size());
  char* reply = nullptr;
  if (!client.SendToServer(request.data(), header) || !client.ReceiveFromServer(&reply, &header)) return false;
  *reply_size = header.length;
  delete[] reply;
  return true;
}

// --- measurement -------------------------------------------------------------

struct Latencies {
  std::vector<double> micros;
  double total = 0;

  void Add(double value) {
    micros.push_back(value);
    total += value;
  }
  double At(double quantile) {
    std::sort(micros.begin(), micros.end());
    return micros[std::min(micros.size() - 1, static_cast<size_t>(quantile * micros.size()))];
  }
  double PerSecond() const { return micros.size() / (total / 1e6); }
};

template <bool (*RoundTrip)(const std::string&, std::string*, size_t*)>
bool Timed(const std::string& request, std::string* buffer, Latencies* into) {
  auto start = std::chrono::steady_clock::now();
  size_t reply_size = 0;
  if (!RoundTrip(request, buffer, &reply_size) || reply_size != request.size()) return false;
  into->Add(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  return true;
}

// Each iteration makes one round trip through the library and one through the
// floor, in alternating order, so that whatever else loads the machine falls
// on both alike. A thread's rate for either is its round trips over the time
// they took; the rates of the threads add up.
void BM_RoundTrip(benchmark::State& state) {
  std::string request(static_cast<size_t>(state.range(0)), 'q');
  std::string buffer;
  Latencies bexo;
  Latencies floor;
  bool ok = true;
  for (auto _ : state) {
    bool library_first = (bexo.micros.size() & 1) == 0;
    ok = library_first
             ? Timed<BexoRoundTrip>(request, &buffer, &bexo) && Timed<FloorRoundTrip>(request, &buffer, &floor)
             : Timed<FloorRoundTrip>(request, &buffer, &floor) && Timed<BexoRoundTrip>(request, &buffer, &bexo);
    if (!ok) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  if (!ok || bexo.micros.empty() || floor.micros.empty()) return;
  using benchmark::Counter;
  state.counters["bexo_rt/s"] = Counter(bexo.PerSecond());
  state.counters["floor_rt/s"] = Counter(floor.PerSecond());
  state.counters["share_%"] = Counter(100.0 * bexo.PerSecond() / floor.PerSecond(), Counter::kAvgThreads);
  state.counters["bexo_p50_us"] = Counter(bexo.At(0.50), Counter::kAvgThreads);
  state.counters["floor_p50_us"] = Counter(floor.At(0.50), Counter::kAvgThreads);
  state.counters["bexo_p99_us"] = Counter(bexo.At(0.99), Counter::kAvgThreads);
  state.counters["floor_p99_us"] = Counter(floor.At(0.99), Counter::kAvgThreads);
}

BENCHMARK(BM_RoundTrip)
    ->ArgName("bytes")
    ->Arg(128)
    ->Arg(65536)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime()
    ->MinTime(1.0)
    ->Repetitions(kRepetitions)
    ->ReportAggregatesOnly(true);

// Prints the medians of the library beside the floor.
class SideBySideReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (!run.error_occurred && run.aggregate_name == "median") medians_.push_back(run);
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\nlibrary beside the floor (medians of %d repetitions, same run):\n", kRepetitions);
    printf("  %-20s %22s %7s %18s %18s\n", "library vs floor", "round trips/s", "share", "p50 us", "p99 us");
    for (const Run& run : medians_) {
      auto value = [&](const char* name) { return run.counters.at(name).value; };
      std::string name = run.run_name.args + " threads:" + std::to_string(run.threads);
      printf("  %-20s %9.0f vs %9.0f %6.1f%% %7.1f vs %7.1f %7.1f vs %7.1f\n", name.c_str(),
             value("bexo_rt/s"), value("floor_rt/s"), value("share_%"), value("bexo_p50_us"),
             value("floor_p50_us"), value("bexo_p99_us"), value("floor_p99_us"));
    }
  }

 private:
  std::vector<Run> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  StartFloorServer();
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Echo);
  if (!server.StartListening()) {
    perror("bexo server");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  SideBySideReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
