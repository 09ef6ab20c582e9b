#include "SystemEventLog.h"

#include <errno.h>
#include <netdb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "ConfigFile.h"
#include "UxLog.h"
#include "product_path.h"

namespace {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";
constexpr char kSection[] = "System-Event";
constexpr char kLogSource[] = "SystemEventLog.cpp";
constexpr size_t kMaxMessage = 8192;
constexpr int kReportSeverity = 6;  // informational: what severities above 7 become
constexpr size_t kMaxAppName = 48;

enum class Transport { kUnix, kUdp, kTcp };

struct Settings {
  Transport transport = Transport::kUnix;
  std::string socket_path = "/dev/log";
  std::string host = "127.0.0.1";
  std::string port = "514";
  bool rfc3164 = false;
  int facility = 1;
};

struct ServiceState {
  std::mutex mutex;  // guards everything below; one send at a time
  bool initialized = false;
  Settings settings;
  int fd = -1;
  sockaddr_storage address{};
  socklen_t address_length = 0;
  std::string hostname;
  std::string app_name;
};

ServiceState& State() {
  static ServiceState* state = new ServiceState;  // used by static destructors that log
  return *state;
}

Settings ReadSettings() {
  Settings settings;
  ConfigFile config(bexo::ProductPath(kConfigPath));
  if (!config.ok()) return settings;
  auto get = [&config](const char* key) { return config.get_value(kSection, key); };
  if (auto value = get("syslog_transport")) {
    if (strcasecmp(value->c_str(), "udp") == 0) settings.transport = Transport::kUdp;
    if (strcasecmp(value->c_str(), "tcp") == 0) settings.transport = Transport::kTcp;
  }
  if (auto value = get("syslog_socket"); value && !value->empty()) settings.socket_path = *value;
  if (auto value = get("syslog_host"); value && !value->empty()) settings.host = *value;
  if (auto value = get("syslog_port"); value && !value->empty()) settings.port = *value;
  if (auto value = get("syslog_format")) settings.rfc3164 = strcasecmp(value->c_str(), "rfc3164") == 0;
  if (auto value = get("Facility"); value && !value->empty()) {
    int facility = atoi(value->c_str());
    if (facility >= 0 && facility <= 23) settings.facility = facility;
  }
  return settings;
}

void CloseLocked(ServiceState& state) {
  if (state.fd >= 0) close(state.fd);
  state.fd = -1;
}

// Resolves the destination and opens the socket; 0 on success.
int OpenLocked(ServiceState& state) {
  CloseLocked(state);
  const Settings& settings = state.settings;
  if (settings.transport == Transport::kUnix) {
    sockaddr_un* un = reinterpret_cast<sockaddr_un*>(&state.address);
    memset(un, 0, sizeof *un);
    un->sun_family = AF_UNIX;
    if (settings.socket_path.size() >= sizeof un->sun_path) return -1;
    memcpy(un->sun_path, settings.socket_path.c_str(), settings.socket_path.size() + 1);
    state.address_length = sizeof *un;
    state.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return state.fd >= 0 ? 0 : -1;
  }
  addrinfo hints{};
  hints.ai_socktype = settings.transport == Transport::kUdp ? SOCK_DGRAM : SOCK_STREAM;
  addrinfo* found = nullptr;
  int rc = getaddrinfo(settings.host.c_str(), settings.port.c_str(), &hints, &found);
  if (rc != 0 || found == nullptr) {
    UX_LOG(1, kLogSource, "OpenLocked", "ERROR: cannot resolve syslog host %s:%s: %s",
           settings.host.c_str(), settings.port.c_str(), gai_strerror(rc));
    return -1;
  }
  memcpy(&state.address, found->ai_addr, found->ai_addrlen);
  state.address_length = found->ai_addrlen;
  int fd = socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, found->ai_protocol);
  freeaddrinfo(found);
  if (fd < 0) return -1;
  if (settings.transport == Transport::kTcp &&
      connect(fd, reinterpret_cast<sockaddr*>(&state.address), state.address_length) != 0) {
    int err = errno;
    UX_LOG(1, kLogSource, "OpenLocked", "ERROR: cannot connect to syslog host %s:%s: %s",
           settings.host.c_str(), settings.port.c_str(), strerror(err));
    close(fd);
    return -1;
  }
  state.fd = fd;
  return 0;
}

// The program name as an RFC 5424 APP-NAME or RFC 3164 TAG: printable
// US-ASCII without blanks, at most 48 characters, so a receiver never splits
// it into the following fields. Other bytes become "_" (in a TAG also ":",
// "[" and "]", which end it); an empty name is "-".
std::string AppName(const char* program, bool rfc3164) {
  std::string name;
  for (const char* p = program; p != nullptr && *p != '\0' && name.size() < kMaxAppName; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    bool printable = c > ' ' && c < 0x7F;
    bool ends_tag = rfc3164 && (c == ':' || c == '[' || c == ']');
    name += printable && !ends_tag ? static_cast<char>(c) : '_';
  }
  return name.empty() ? "-" : name;
}

int InitializeLocked(ServiceState& state) {
  state.settings = ReadSettings();
  char name[256] = "-";
  if (gethostname(name, sizeof name) != 0) strcpy(name, "-");
  name[sizeof name - 1] = '\0';
  state.hostname = name;
  state.app_name = AppName(program_invocation_short_name, state.settings.rfc3164);
  state.initialized = true;
  return OpenLocked(state);
}

// The syslog header for this event, RFC 5424 or 3164.
size_t FormatHeader(const ServiceState& state, int event_id, int severity, char* out, size_t size) {
  if (severity < 0 || severity > 7) severity = kReportSeverity;
  int priority = state.settings.facility * 8 + severity;
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  const char* app = state.app_name.c_str();
  int n;
  if (state.settings.rfc3164) {
    char stamp[32];
    strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
    n = snprintf(out, size, "<%d>%s %s %s[%d]: [%d] ", priority, stamp, state.hostname.c_str(), app,
                 static_cast<int>(getpid()), event_id);
  } else {
    char stamp[40];
    size_t m = strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
    long offset = local.tm_gmtoff;
    char sign = offset < 0 ? '-' : '+';
    if (offset < 0) offset = -offset;
    snprintf(stamp + m, sizeof stamp - m, ".%06ld%c%02ld:%02ld", static_cast<long>(now.tv_usec), sign,
             offset / 3600, offset / 60 % 60);
    n = snprintf(out, size, "<%d>1 %s %s %s %d %d - ", priority, stamp, state.hostname.c_str(), app,
                 static_cast<int>(getpid()), event_id);
  }
  if (n < 0) return 0;
  return static_cast<size_t>(n) < size ? static_cast<size_t>(n) : size - 1;
}

ssize_t SendOnce(ServiceState& state, const char* data, size_t length) {
  if (state.fd < 0) return -1;
  if (state.settings.transport == Transport::kTcp) {
    // Octet counting: "LEN SP MSG".
    char frame[kMaxMessage + 16];
    int n = snprintf(frame, sizeof frame, "%zu ", length);
    memcpy(frame + n, data, length);
    size_t total = static_cast<size_t>(n) + length;
    size_t sent = 0;
    while (sent < total) {
      ssize_t rc = send(state.fd, frame + sent, total - sent, MSG_NOSIGNAL);
      if (rc < 0 && errno == EINTR) continue;
      if (rc <= 0) return -1;
      sent += static_cast<size_t>(rc);
    }
    return static_cast<ssize_t>(length);
  }
  ssize_t rc;
  do {
    rc = sendto(state.fd, data, length, MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&state.address),
                state.address_length);
  } while (rc < 0 && errno == EINTR);
  return rc;
}

int Send(int event_id, int severity, const char* text, size_t text_length) {
  ServiceState& state = State();
  std::lock_guard<std::mutex> guard(state.mutex);
  if (!state.initialized) InitializeLocked(state);
  char message[kMaxMessage];
  size_t length = FormatHeader(state, event_id, severity, message, sizeof message);
  if (text_length == 0 && length > 0) --length;  // no text: no separating blank either
  size_t room = sizeof message - length;
  if (text_length > room) text_length = room;
  memcpy(message + length, text, text_length);
  length += text_length;
  if (SendOnce(state, message, length) >= 0) return 0;
  // A stream whose peer went away, or a socket never opened: reopen once.
  if (OpenLocked(state) == 0 && SendOnce(state, message, length) >= 0) return 0;
  return -1;
}

}  // namespace

int InitializeSystemEventLog() {
  ServiceState& state = State();
  std::lock_guard<std::mutex> guard(state.mutex);
  return InitializeLocked(state);
}

int DeinitializeSystemEventLog() {
  ServiceState& state = State();
  std::lock_guard<std::mutex> guard(state.mutex);
  CloseLocked(state);
  state.initialized = false;
  return 0;
}

int RefreshConfig() { return InitializeSystemEventLog(); }

int SystemEventLog(int event_id, int severity) { return Send(event_id, severity, "", 0); }

int SystemEventLogF(int event_id, int severity, const char* format, ...) {
  char text[kMaxMessage];
  va_list args;
  va_start(args, format);
  int n = vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (n < 0) return -1;
  size_t length = static_cast<size_t>(n) < sizeof text ? static_cast<size_t>(n) : sizeof text - 1;
  return Send(event_id, severity, text, length);
}
