#include "UxLog.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>

#include "ConfigFile.h"
#include "product_path.h"

namespace {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";
constexpr char kDefaultLogFile[] = "/var/bexo/log/bexo_debug.log";

struct LogState {
  std::once_flag configured;
  std::atomic<int> threshold{1};
  std::mutex mutex;  // guards fd and sink
  int fd = STDERR_FILENO;
  UxLog::Sink sink;
};

LogState& State() {
  static LogState* state = new LogState;  // outlives static destructors that log
  return *state;
}

void LoadConfig(LogState& state) {
  ConfigFile config;
  int threshold = 1;
  std::string file = kDefaultLogFile;
  if (config.read_config(bexo::ProductPath(kConfigPath))) {
    if (auto value = config.get_value("debug", "ux_log_level")) threshold = atoi(value->c_str());
    if (auto value = config.get_value("debug", "ux_log_file")) file = *value;
  }
  std::string path = bexo::ProductPath(file);
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 && bexo::MakeParentDirectories(path) == 0) {
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  }
  std::lock_guard<std::mutex> guard(state.mutex);
  if (state.fd != STDERR_FILENO) close(state.fd);
  state.fd = fd >= 0 ? fd : STDERR_FILENO;
  state.threshold = threshold;
}

LogState& ConfiguredState() {
  LogState& state = State();
  std::call_once(state.configured, [&state] { LoadConfig(state); });
  return state;
}

}  // namespace

bool UxLog::canLog(int level) { return level <= ConfiguredState().threshold.load(std::memory_order_relaxed); }

void UxLog::writeLog3(int level, const char* file, int line, const char* function,
                      const std::string& text) {
  LogState& state = ConfiguredState();
  std::string body = text;
  while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) body.pop_back();
  {
    std::lock_guard<std::mutex> guard(state.mutex);
    if (state.sink) {
      state.sink(UxLogRecord{level, file ? file : "", line, function ? function : "", body});
      return;
    }
  }
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  char head[160];
  snprintf(head, sizeof head, "%s.%03ld %d %ld %d ", stamp, static_cast<long>(now.tv_usec / 1000),
           static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)), level);
  std::string out = head;
  out += file ? file : "";
  out += ':';
  out += std::to_string(line);
  out += ' ';
  out += function ? function : "";
  out += ": ";
  out += body;
  out += '\n';
  std::lock_guard<std::mutex> guard(state.mutex);
  ssize_t ignored = write(state.fd, out.data(), out.size());
  (void)ignored;  // nowhere left to report a failed debug write
}

std::string UxLog::LogStr(const char* format, ...) {
  char small[512];
  va_list args;
  va_start(args, format);
  int needed = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (needed < 0) return std::string();
  if (static_cast<size_t>(needed) < sizeof small) return std::string(small, needed);
  std::string big(static_cast<size_t>(needed) + 1, '\0');
  va_start(args, format);
  vsnprintf(&big[0], big.size(), format, args);
  va_end(args);
  big.resize(static_cast<size_t>(needed));
  return big;
}

void UxLog::reloadConfig() {
  LogState& state = ConfiguredState();
  LoadConfig(state);
}

void UxLog::setLevel(int level) { ConfiguredState().threshold = level; }

int UxLog::level() { return ConfiguredState().threshold; }

void UxLog::setSink(Sink sink) {
  LogState& state = ConfiguredState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.sink = std::move(sink);
}
