// The file is reserved before it is mapped: writing into a hole of a full disk would end the
// program.
#include "layers/trace/trace_writer.h"

#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "layers/common/call_set.h"
#include "layers/common/say.h"
#include "layers/common/settings.h"
#include "shared/operations/words.h"
#include "shared/trace/trace_settings.h"

namespace vorn::layers {
namespace {

constexpr uint64_t kMostCalls = uint64_t{1} << 24;
constexpr uint64_t kNamesBytes = uint64_t{operations::kOperations} * trace::kNameBytes;
constexpr uint64_t kPageBytes = 4096;
constexpr uint64_t kSlotsAt =
    (trace::kHeaderBytes + kNamesBytes + kPageBytes - 1) / kPageBytes * kPageBytes;

// Null until there is a file. Never unmapped: a thread may be inside a call while others end.
std::atomic<trace::Header*> g_header{nullptr};

// The room for calls, which most processes that are started under a layer never need: reserved and
// mapped with the first call. Null before, and where that failed.
std::atomic<trace::Slot*> g_slots{nullptr};
std::array<char, PATH_MAX> g_name;  // absolute: the program may change its folder
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_isTried = false;  // under the lock

// Which calls are noted, where not all are, and how many were made: of each operation, and
// together.
CallSet g_only;
bool g_isOnlySome = false;
std::atomic<uint64_t> g_made{0};
std::atomic<uint64_t> g_madeOf[operations::kOperations];

constexpr SettingsTable kTable{"trace", trace::kTraceSettings, trace::kSettings};

// Whether the process had a runtime as the layer was loaded: it is linked with one, and whatever it
// calls of it comes by way of the layer.
bool g_isLinked = false;

uint64_t ClockNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

// What one reading costs, which is in every duration of the trace.
uint64_t MeasureClock() {
  std::array<uint64_t, 101> costs{};
  for (uint64_t& cost : costs) {
    constexpr int kReadings = 8;
    const uint64_t start = ClockNs(CLOCK_MONOTONIC);
    for (int i = 1; i < kReadings; ++i) (void)ClockNs(CLOCK_MONOTONIC);
    cost = (ClockNs(CLOCK_MONOTONIC) - start) / kReadings;
  }
  std::nth_element(costs.begin(), costs.begin() + costs.size() / 2, costs.end());
  return costs[costs.size() / 2];
}

// Appends to a name that ends with a zero. False where it does not fit.
bool Append(std::array<char, PATH_MAX>& name, const char* text) {
  const size_t length = std::strlen(name.data());
  const size_t more = std::strlen(text);
  if (length + more >= name.size()) return false;
  std::memcpy(name.data() + length, text, more + 1);
  return true;
}

bool FileName(const char* pattern, std::array<char, PATH_MAX>& name) {
  name[0] = '\0';
  bool fits = true;
  if (*pattern != '/') {
    fits = getcwd(name.data(), name.size()) != nullptr && Append(name, "/");
  }
  for (; fits && *pattern != '\0'; ++pattern) {
    std::array<char, 16> text{*pattern};
    if (pattern[0] == '%' && pattern[1] == 'p') {
      std::snprintf(text.data(), text.size(), "%d", static_cast<int>(getpid()));
      ++pattern;
    }
    fits = Append(name, text.data());
  }
  if (!fits) Say("the name in VORN_TRACE_FILE is too long; nothing is traced");
  return fits;
}

bool Capacity(const char* text, uint64_t& calls) {
  char* end = nullptr;
  errno = 0;
  calls = std::strtoull(text, &end, 10);
  if (errno == 0 && *end == '\0' && *text != '-' && calls >= 1 && calls <= kMostCalls) return true;
  Say("VORN_TRACE_CALLS takes a whole number from 1 to %" PRIu64 ", and is '%s'; nothing is traced",
      kMostCalls, text);
  return false;
}

bool Only(const char* text) {
  std::array<char, 300> reason{};
  const OperationNames names{operations::kOperationNames, operations::kOperations};
  g_made = 0;
  for (auto& made : g_madeOf) made = 0;
  g_isOnlySome = *text != '\0';
  if (ParseCallSet(text, names, ReadTextFile, g_only, reason.data(), reason.size())) return true;
  Say("VORN_TRACE_ONLY: %s; nothing is traced", reason.data());
  return false;
}

// Bytes of the file, reserved and mapped. Null, and a line, where that fails.
void* Map(int fd, uint64_t at, uint64_t bytes) {
  const int error = posix_fallocate(fd, static_cast<off_t>(at), static_cast<off_t>(bytes));
  if (error != 0) {
    Say("cannot reserve %" PRIu64
        " bytes for '%s': %s; nothing is traced. VORN_TRACE_CALLS makes it "
        "smaller",
        bytes, g_name.data(), std::strerror(error));
    return nullptr;
  }
  void* part = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(at));
  if (part == MAP_FAILED) {
    Say("cannot map '%s': %s; nothing is traced", g_name.data(), std::strerror(errno));
    return nullptr;
  }
  return part;
}

int Open(int flags) {
  const int fd = open(g_name.data(), O_RDWR | O_CLOEXEC | flags, 0644);
  if (fd < 0) {
    Say("cannot open '%s': %s; nothing is traced", g_name.data(), std::strerror(errno));
  }
  return fd;
}

// A descriptor would not do in place of the name: a program may close all that it did not open.
trace::Slot* MapSlots(trace::Header& header, const char* runtime) {
  pthread_mutex_lock(&g_lock);
  trace::Slot* slots = g_slots.load(std::memory_order_acquire);
  if (slots == nullptr && !g_isTried) {
    g_isTried = true;
    std::strncpy(header.runtime, runtime, sizeof(header.runtime) - 1);
    const int fd = Open(0);
    if (fd >= 0) {
      slots =
          static_cast<trace::Slot*>(Map(fd, header.slotsAt, header.slots * sizeof(trace::Slot)));
      close(fd);
    }
    g_slots.store(slots, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_lock);
  return slots;
}

void WriteNames(std::byte* names) {
  for (size_t i = 0; i < operations::kOperations; ++i) {
    std::strncpy(reinterpret_cast<char*>(names + i * trace::kNameBytes),
                 operations::kOperationNames[i], trace::kNameBytes - 1);
  }
}

void WriteHeader(trace::Header& header, uint64_t calls, const char* const* values) {
  DescribeSettings(kTable, values, header.settings, sizeof(header.settings));
  header.version = trace::kVersion;
  header.headerBytes = trace::kHeaderBytes;
  header.nameBytes = trace::kNameBytes;
  header.names = operations::kOperations;
  header.slotBytes = sizeof(trace::Slot);
  header.pid = static_cast<uint32_t>(getpid());
  header.slotsAt = kSlotsAt;
  header.slots = calls;
  header.monotonicNs = ClockNs(CLOCK_MONOTONIC);
  header.realtimeNs = ClockNs(CLOCK_REALTIME);
  header.clockNs = MeasureClock();
  gethostname(header.host, sizeof(header.host) - 1);
  const ssize_t length = readlink("/proc/self/exe", header.program, sizeof(header.program) - 1);
  if (length < 0) header.program[0] = '\0';
  // Last: a file with it has all the rest.
  std::atomic_thread_fence(std::memory_order_release);
  std::memcpy(header.magic, trace::kMagic, sizeof(trace::kMagic));
}

void OpenTrace() {
  uint64_t calls = 0;
  std::array<const char*, trace::kSettings> values{};
  if (!ReadSettings(kTable, values.data()) || !FileName(values[trace::kFileSetting], g_name) ||
      !Capacity(values[trace::kCallsSetting], calls) || !Only(values[trace::kOnlySetting])) {
    return;
  }
  const int fd = Open(O_CREAT | O_TRUNC);
  if (fd < 0) return;
  void* front = Map(fd, 0, kSlotsAt);
  close(fd);
  if (front == nullptr) return;
  WriteNames(static_cast<std::byte*>(front) + trace::kHeaderBytes);
  auto* header = static_cast<trace::Header*>(front);
  WriteHeader(*header, calls, values.data());
  g_header.store(header, std::memory_order_release);
}

// The file is the parent's to go on with. Whoever held the lock is not in this process.
void OpenInChild() {
  g_header.store(nullptr, std::memory_order_relaxed);
  g_slots.store(nullptr, std::memory_order_relaxed);
  g_lock = PTHREAD_MUTEX_INITIALIZER;
  g_isTried = false;
  OpenTrace();
}

// Looks for a runtime among all that is mapped, by the name that it has to have.
int FindRuntime(dl_phdr_info* info, size_t, void* found) {
  const char* slash = std::strrchr(info->dlpi_name, '/');
  const char* file = slash == nullptr ? info->dlpi_name : slash + 1;
  if (std::strncmp(file, "libvorn.so", std::strlen("libvorn.so")) != 0) return 0;
  *static_cast<const char**>(found) = info->dlpi_name;
  return 1;
}

// Counts a call, and tells whether it is to be noted.
bool IsWanted(trace::Header& header, uint16_t operation, uint64_t& number) {
  number = g_made.fetch_add(1, std::memory_order_relaxed) + 1;
  const uint64_t ownNumber = g_madeOf[operation].fetch_add(1, std::memory_order_relaxed) + 1;
  if (g_only.Holds(operation, number, ownNumber)) return true;
  std::atomic_ref(header.passed).fetch_add(1, std::memory_order_relaxed);
  return false;
}

}  // namespace

uint64_t MonotonicNs() { return ClockNs(CLOCK_MONOTONIC); }

uint32_t ThreadId() {
  // 0 stands for a thread that was not asked yet, and in a child of fork the number is another.
  static thread_local uint32_t thread = 0;
  static thread_local uint32_t process = 0;
  const trace::Header* header = g_header.load(std::memory_order_relaxed);
  const uint32_t now = header == nullptr ? 0 : header->pid;
  if (thread == 0 || process != now) {
    thread = static_cast<uint32_t>(syscall(SYS_gettid));
    process = now;
  }
  return thread;
}

void BeginTrace() {
  const char* linked = nullptr;
  g_isLinked = dl_iterate_phdr(FindRuntime, &linked) != 0;
  OpenTrace();
  if (pthread_atfork(nullptr, nullptr, OpenInChild) != 0) {
    Say("children of fork write into the trace of their parent");
  }
}

void CloseTrace() {
  trace::Header* header = g_header.load(std::memory_order_acquire);
  if (header == nullptr) return;
  const char* other = nullptr;
  const bool isUncalled = header->runtime[0] == '\0' && !g_isLinked;
  if (isUncalled && dl_iterate_phdr(FindRuntime, &other) != 0) {
    std::strncpy(header->other, other, sizeof(header->other) - 1);
  }
  header->endedNs = ClockNs(CLOCK_MONOTONIC);
}

trace::Slot* BeginCall(const char* runtime, uint16_t operation, uint64_t& number) {
  trace::Header* header = g_header.load(std::memory_order_acquire);
  if (header == nullptr) return nullptr;
  trace::Slot* slots = g_slots.load(std::memory_order_acquire);
  if (slots == nullptr) slots = MapSlots(*header, runtime);
  if (g_isOnlySome && !IsWanted(*header, operation, number)) return nullptr;
  const uint64_t noted = std::atomic_ref(header->calls).fetch_add(1, std::memory_order_relaxed) + 1;
  if (!g_isOnlySome) number = noted;
  return slots == nullptr || noted > header->slots ? nullptr : &slots[noted - 1];
}

}  // namespace vorn::layers
