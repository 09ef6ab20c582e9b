#include "EventLogBase.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/timezone.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <optional>

#include "MemoryLogBuffer.h"
#include "ScopedUmask.h"
#include "UxLog.h"
#include "bexo_util.h"
#include "eventlog/eventlog_util.h"
#include "product_path.h"

using bexo_eventlog::ErrorText;
using bexo_eventlog::kSourceFile;

namespace {

constexpr unsigned int kNameBufferSize = 1024;
constexpr int kTimeZoneNameSize = 64;
constexpr char kDefaultLanguage[] = "en";

const char* LanguageOrDefault(const char* language) {
  return language != nullptr && *language != '\0' ? language : kDefaultLanguage;
}

// Both locks of a log, in-process first; says which one could not be taken.
class BothLocks {
 public:
  BothLocks(BEXOMutex& in_process, BEXOFileMutex& cross_process, const std::string& log_name,
            const char* function)
      : in_process_(in_process) {
    if (!in_process_.isLocked()) {
      UX_LOG(1, kSourceFile, function, "WARNING: Failed to acquire in-proc %s log mutex",
             log_name.c_str());
      return;
    }
    cross_process_.emplace(cross_process);
    if (!cross_process_->isLocked()) {
      UX_LOG(1, kSourceFile, function, "WARNING: Failed to acquire cross-process %s log mutex",
             log_name.c_str());
    }
  }
  BothLocks(const BothLocks&) = delete;
  BothLocks& operator=(const BothLocks&) = delete;

  bool held() const { return cross_process_.has_value() && cross_process_->isLocked(); }

 private:
  BEXOLock in_process_;
  std::optional<BEXOLock> cross_process_;  // released before in_process_
};

// "<prefix>.YYYY.MM.DD.NNNN" into at most `size` bytes; true when it fit.
bool FormatOutputName(char* buffer, size_t size, const std::string& prefix, const struct tm& day,
                      int counter) {
  int n = snprintf(buffer, size, "%s.%04d.%02d.%02d.%04u", prefix.c_str(), day.tm_year + 1900,
                   day.tm_mon + 1, day.tm_mday, static_cast<unsigned>(counter));
  return n >= 0 && static_cast<size_t>(n) < size;
}

}  // namespace

struct BEXOEventLogBase::Icu {
  ~Icu() {
    if (converter != nullptr) ucnv_close(converter);
  }
  std::unique_ptr<icu::DateFormat> date_format;
  UConverter* converter = nullptr;
};

BEXOEventLogBase::BEXOEventLogBase(const char* lockFilePath, const char* logName)
    : log_name_(logName != nullptr ? logName : ""),
      icu_(new Icu),
      language_(kDefaultLanguage),
      file_mutex_(lockFilePath, true) {}

BEXOEventLogBase::~BEXOEventLogBase() {
  memory_buffer_.reset();
  // Only this process's mapping goes; the kernel frees a segment (already
  // marked for removal) when the last process that shares it lets go.
  if (segment_ != nullptr) shmdt(segment_);
  if (counter_segment_ != nullptr) shmdt(counter_segment_);
}

int BEXOEventLogBase::Initialize(bool useSharedMemory, unsigned int bufferSize,
                                 const char* filePrefix, int outputMode, const char* language,
                                 bool flag, int maxFileSize) {
  use_shared_memory_ = useSharedMemory;
  if (filePrefix == nullptr || language == nullptr) {
    UX_LOG(1, kSourceFile, "Initialize",
           "ERROR: Failed to init %s log because of bad file prefix or language specifier [%lx,%lx]",
           log_name_.c_str(), static_cast<unsigned long>(reinterpret_cast<uintptr_t>(filePrefix)),
           static_cast<unsigned long>(reinterpret_cast<uintptr_t>(language)));
    return -1;
  }
  int result = InitSharedMemory(bufferSize);
  if (result != 0) return result;
  if (rollover_counter_ == nullptr) {
    rollover_counter_ = CreateSharedRolloverCounter();
    counter_segment_ = rollover_counter_;
  }
  result = PrepareICU(LanguageOrDefault(language));
  if (result < 0) return result;
  max_file_size_ = static_cast<unsigned int>(maxFileSize);
  return Refresh(filePrefix, outputMode, language, flag);
}

int BEXOEventLogBase::InitSharedMemory(unsigned int bufferSize) {
  if (!use_shared_memory_ || memory_buffer_ != nullptr) return 0;
  unsigned int size;
  if (bufferSize < 1 || bufferSize > kMaximumBufferSize) {
    size = kDefaultBufferSize;
  } else if (bufferSize > kMinimumBufferSize - 1) {
    size = bufferSize;
  } else {
    size = kMinimumBufferSize;
  }
  const size_t segment_size = size_t{size} + sizeof(BEXOLogRolloverCounter);

  int id = shmget(IPC_PRIVATE, segment_size, IPC_CREAT | IPC_EXCL | 0600);
  if (id < 0) {
    int error = errno;
    UX_LOG(1, kSourceFile, "InitSharedMemory",
           "ERROR: Failed to allocate shared memory segment for access log buffer with [%d:%s]",
           error, ErrorText(error));
    UX_LOG(1, kSourceFile, "InitSharedMemory",
           "CONTINUED: size attempted [%u] bytes.  You could reduce access log size by modifying "
           "text_access_log_buffer_size key in morvane.ini",
           static_cast<unsigned>(segment_size));
    return -1;
  }
  void* memory = shmat(id, nullptr, 0);
  int attach_error = errno;
  // Marked at once: the segment then lives exactly as long as the processes
  // attached to it, this one and the workers it forks.
  if (shmctl(id, IPC_RMID, nullptr) != 0) {
    int error = errno;
    UX_LOG(1, kSourceFile, "InitSharedMemory",
           "ERROR: Failed to mark access log shared memory segment as detached.  You may need to "
           "manually remove it via ipcrm -m %d.  Error was [%d:%s]",
           id, error, ErrorText(error));
  }
  if (memory == reinterpret_cast<void*>(-1)) {
    UX_LOG(1, kSourceFile, "InitSharedMemory",
           "ERROR: Failed to attach shared memory segment for access log buffer with [%d : %s]",
           attach_error, ErrorText(attach_error));
    return -1;
  }
  segment_ = memory;
  memory_buffer_.reset(new MemoryLogBuffer(memory, static_cast<int>(size)));
  buffer_size_ = size;
  rollover_counter_ = reinterpret_cast<BEXOLogRolloverCounter*>(static_cast<char*>(memory) + size);
  rollover_counter_->Init();
  return 0;
}

int BEXOEventLogBase::PrepareICU(const char* language) {
  BEXOLock lock(in_process_mutex_);
  if (icu_->converter == nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open("UTF8", &status);
    if (U_FAILURE(status) || converter == nullptr) {
      UX_LOG(1, kSourceFile, "PrepareICU",
             "ERROR: Failed to allocate UConverter in event log initialization");
      return -1;
    }
    icu_->converter = converter;
  }
  if (icu_->date_format != nullptr) return 0;

  std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kShort, icu::DateFormat::kMedium, icu::Locale(LanguageOrDefault(language))));
  if (format == nullptr) {
    UX_LOG(1, kSourceFile, "PrepareICU",
           "ERROR: Failed to create DateFormat object in event log initialization");
    return -1;
  }
  char zone_name[kTimeZoneNameSize];
  GetTZOffset(zone_name, sizeof zone_name);
  std::unique_ptr<icu::TimeZone> zone;
  if (zone_name[0] == '\0') {
    UX_LOG(3, kSourceFile, "PrepareICU", "Use default time zone");
    zone.reset(icu::TimeZone::createDefault());
  } else {
    UX_LOG(3, kSourceFile, "PrepareICU", "Create time zone %s", zone_name);
    zone.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone_name)));
  }
  if (zone == nullptr) {
    UX_LOG(1, kSourceFile, "PrepareICU", "WARNING: Failed to create TimeZone object");
    return -1;
  }
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Calendar> calendar(
      icu::Calendar::createInstance(*zone, icu::Locale::getDefault(), status));
  if (U_FAILURE(status) || calendar == nullptr) {
    UX_LOG(3, kSourceFile, "PrepareICU", "WARNING: Failed to generate GregorianCalendar object");
  } else {
    format->adoptCalendar(calendar.release());
  }
  icu_->date_format = std::move(format);
  return 0;
}

int BEXOEventLogBase::Refresh(const char* filePrefix, int outputMode, const char* language,
                              bool flag) {
  if (icu_->date_format == nullptr || icu_->converter == nullptr) {
    UX_LOG(1, kSourceFile, "Refresh",
           "ERROR: Dateformat or charset converter not allocated in event log");
    return -1;
  }
  if (filePrefix == nullptr) {
    UX_LOG(1, kSourceFile, "Refresh",
           "ERROR: Failed to init %s log because of bad file prefix or language specifier [%lx,%lx]",
           log_name_.c_str(), 0UL, static_cast<unsigned long>(reinterpret_cast<uintptr_t>(language)));
    return -1;
  }
  BEXOLock lock(in_process_mutex_);
  file_prefix_ = bexo::ProductPath(filePrefix);
  output_mode_.store(outputMode >= 0 && outputMode <= 2 ? outputMode : 0, std::memory_order_relaxed);
  language_ = LanguageOrDefault(language);
  flag_.store(flag, std::memory_order_relaxed);
  return 0;
}

int BEXOEventLogBase::WriteMemoryLog(const char* text, unsigned int length) {
  if (text == nullptr) return 0;
  if (length == 0) return 1;
  BothLocks locks(in_process_mutex_, file_mutex_, log_name_, "WriteMemoryLog");
  if (!locks.held()) return 0;

  if (memory_buffer_ != nullptr) {
    // No line is longer than the buffer can ever hold, so INT_MAX is "too long".
    const int bytes = length > static_cast<unsigned>(INT_MAX) ? INT_MAX : static_cast<int>(length);
    if (memory_buffer_->write(text, bytes)) return 1;
    for (int dumps = 0; dumps < 2; ++dumps) {
      if (DumpBufferLocked("WriteMemoryLog") < 0) return 0;
      if (memory_buffer_->write(text, bytes)) return 1;
    }
    return 1;  // longer than the whole buffer: dropped on purpose
  }

  int fd = OpenOutputFileLocked();
  if (fd < 0) {
    LogOpenFailure("WriteMemoryLog", errno);
    return 0;
  }
  ssize_t written = write(fd, text, length);
  (void)written;  // one append; a short write is not retried
  close(fd);
  return 1;
}

int BEXOEventLogBase::Flush() {
  const int mode = GetOutputMode();
  if (mode == 0 || mode == 1) {
    int result = Report_Log_Read_Write::FlushLog();
    if (result < 0) {
      UX_LOG(1, kSourceFile, "Flush", "WARNING: Failed to write report log for %s history [%d]",
             log_name_.c_str(), result);
    }
  }
  if (!use_shared_memory_ || memory_buffer_ == nullptr) return 1;

  BothLocks locks(in_process_mutex_, file_mutex_, log_name_, "Flush");
  if (!locks.held()) return 0;
  if (mode == 0) {
    memory_buffer_->clear();  // the log goes to the database only
    return 1;
  }
  int result = DumpBufferLocked("Flush");
  return result < 0 ? 0 : result;
}

int BEXOEventLogBase::DumpBufferLocked(const char* function) {
  int fd = OpenOutputFileLocked();
  if (fd < 0) {
    LogOpenFailure(function, errno);
    return -1;
  }
  int result = memory_buffer_->dump(fd);
  close(fd);
  return result;
}

void BEXOEventLogBase::LogOpenFailure(const char* function, int error) {
  UX_LOG(1, kSourceFile, function, "ERROR: Failed to open %s [%d:%s]", file_prefix_.c_str(), error,
         ErrorText(error));
}

void BEXOEventLogBase::GetOutputFileName(char* buffer, unsigned int size) {
  BothLocks locks(in_process_mutex_, file_mutex_, log_name_, "GetOutputFileName");
  OutputFileNameLocked(buffer, size);
}

void BEXOEventLogBase::OutputFileNameLocked(char* buffer, unsigned int size) {
  if (buffer == nullptr || size == 0) return;
  buffer[0] = '\0';
  buffer[size - 1] = '\0';
  time_t now = time(nullptr);
  struct tm today;
  if (localtime_r(&now, &today) == nullptr) return;
  int counter = rollover_counter_ != nullptr ? rollover_counter_->GetCounter() : 1;
  bool whole = FormatOutputName(buffer, size - 1, file_prefix_, today, counter);
  if (rollover_counter_ == nullptr) return;
  // A cut name no longer shows the counter: walking on would never end.
  struct stat st;
  while (whole && stat(buffer, &st) == 0 && static_cast<uint64_t>(st.st_size) >= max_file_size_) {
    rollover_counter_->IncrementCounter();
    counter = rollover_counter_->GetCounter();
    whole = FormatOutputName(buffer, size, file_prefix_, today, counter);
  }
}

bool BEXOEventLogBase::OutputFileNameForOpenLocked(char* name, unsigned int size) {
  // Without a prefix (no Initialize yet) the name would fall in the working
  // directory of whichever process writes first.
  if (file_prefix_.empty()) {
    errno = EINVAL;
    return false;
  }
  OutputFileNameLocked(name, size);
  return true;
}

int BEXOEventLogBase::OpenOutputFileLocked() {
  char name[kNameBufferSize];
  if (!OutputFileNameForOpenLocked(name, sizeof name)) return -1;
  ScopedUmask mask(002);
  return open(name, O_WRONLY | O_CREAT | O_APPEND | O_SYNC | O_CLOEXEC, 0644);
}

int BEXOEventLogBase::OpenOutputFileDescriptor() {
  BothLocks locks(in_process_mutex_, file_mutex_, log_name_, "OpenOutputFileDescriptor");
  return OpenOutputFileLocked();
}

FILE* BEXOEventLogBase::OpenOutputFileStream() {
  BothLocks locks(in_process_mutex_, file_mutex_, log_name_, "OpenOutputFileStream");
  char name[kNameBufferSize];
  if (!OutputFileNameForOpenLocked(name, sizeof name)) return nullptr;
  ScopedUmask mask(002);
  return fopen(name, "a+e");
}

void BEXOEventLogBase::GetLocalizedTimestamp(char* buffer, unsigned int size) {
  if (buffer == nullptr || size == 0) return;
  buffer[0] = '\0';
  BEXOLock lock(in_process_mutex_);  // the converter keeps state between calls
  if (icu_->date_format == nullptr || icu_->converter == nullptr) return;
  icu::UnicodeString text;
  icu_->date_format->format(icu::Calendar::getNow(), text);
  UErrorCode status = U_ZERO_ERROR;
  const int32_t capacity = size - 1 > INT32_MAX ? INT32_MAX : static_cast<int32_t>(size - 1);
  int32_t length = ucnv_fromUChars(icu_->converter, buffer, capacity,
                                   text.getBuffer(), text.length(), &status);
  ucnv_reset(icu_->converter);
  buffer[U_SUCCESS(status) ? length : 0] = '\0';
}
