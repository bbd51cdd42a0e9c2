#include "platform/linux/linux_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>

namespace vemora::platform::linux_files {
namespace {

using linux_text::KeyedNumber;

constexpr std::size_t kProcFileCapacity = 16384;
constexpr std::size_t kPathCapacity = 512;

std::optional<std::uint64_t> KibToBytes(std::optional<std::uint64_t> kib) {
  if (!kib || *kib > std::numeric_limits<std::uint64_t>::max() / 1024) return std::nullopt;
  return *kib * 1024;
}

// root + path into out, NUL-terminated; false when it does not fit. Copied
// by hand: formatting with snprintf costs more than the rest of a reading's
// own work.
bool JoinPath(char (&out)[kPathCapacity], const char* root, const char* path) {
  const std::size_t root_length = std::strlen(root);
  const std::size_t path_length = std::strlen(path);
  if (root_length + path_length >= kPathCapacity) return false;
  std::memcpy(out, root, root_length);
  std::memcpy(out + root_length, path, path_length + 1);
  return true;
}

int OpenUnder(const char* root, const char* path) {
  char full_path[kPathCapacity];
  if (!JoinPath(full_path, root, path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return ::open(full_path, O_RDONLY | O_CLOEXEC);
}

bool AllFound(const KeyedNumber* wanted, std::size_t count) {
  return std::all_of(wanted, wanted + count, [](const KeyedNumber& k) { return k.value; });
}

constexpr std::size_t kStatusKeys = 4;
void WantStatus(KeyedNumber (&wanted)[kStatusKeys]) {
  wanted[0] = {"Pid", {}};
  wanted[1] = {"VmRSS", {}};
  wanted[2] = {"RssAnon", {}};
  wanted[3] = {"VmSwap", {}};
}
Reading<ProcessMemory> ProcessMemoryFromNumbers(const KeyedNumber (&found)[kStatusKeys]) {
  // Kernel threads have no memory lines (proc(5)); they hold no user memory.
  // A file without its Pid line is not a status file.
  if (!found[0].value) return Failure<ProcessMemory>(EINVAL);
  const auto resident = KibToBytes(found[1].value.value_or(0));
  const auto anonymous = KibToBytes(found[2].value.value_or(0));
  const auto swapped = KibToBytes(found[3].value.value_or(0));
  if (!resident || !anonymous || !swapped || *anonymous > ~*swapped) {
    return Failure<ProcessMemory>(EOVERFLOW);
  }
  return Value(ProcessMemory{*resident, *anonymous + *swapped});
}

// A name of 64 characters at most (a kernel worker's) and 52 numbers.
constexpr std::size_t kStatCapacity = 4096;

std::optional<std::uint64_t> TicksToNs(std::uint64_t ticks, std::uint64_t ticks_per_second) {
  constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
  const std::uint64_t seconds = ticks / ticks_per_second;
  // The remainder's share, exact for any tick rate up to the nanosecond.
  const std::uint64_t rest_ns = ticks % ticks_per_second * kNsPerSecond / ticks_per_second;
  if (seconds > (std::numeric_limits<std::uint64_t>::max() - rest_ns) / kNsPerSecond) {
    return std::nullopt;
  }
  return seconds * kNsPerSecond + rest_ns;
}

// A sysfs attribute holds one line of at most a page.
constexpr std::size_t kAttributeCapacity = 4096;
// The kernel writes /proc/cpuinfo one processor at a time, and each costs
// microseconds (it asks that CPU for its clock). A first read shorter than
// one processor's block makes it write only the first; the rest of that
// block, up to the end of its flags line, then comes from what it holds in
// small reads that never ask for the next one (fs/seq_file.c). A board with
// many cores, whose name comes last, needs the whole file.
constexpr std::size_t kCpuinfoFirstRead = 1024;
constexpr std::size_t kCpuinfoNextRead = 128;
constexpr std::size_t kCpuinfoBlockCapacity = 8192;
constexpr std::size_t kCpuinfoCapacity = 256 * 1024;

// Whole lines only, so that no flag is taken from a line cut short.
std::string_view CompleteLines(std::string_view text) {
  return text.substr(0, text.rfind('\n') + 1);
}

// The first processor's block of /proc/cpuinfo, read as far as the end of
// its flags line (or of the block); 0, or the errno of the failed step.
int ReadFirstCpuinfoBlock(const char* root, char (&text)[kCpuinfoBlockCapacity],
                          std::size_t* length, linux_text::CpuinfoFacts* parsed) {
  const int fd = OpenUnder(root, "/proc/cpuinfo");
  if (fd < 0) return errno;
  std::size_t total = 0;
  std::size_t want = kCpuinfoFirstRead;
  int error = 0;
  while (total + want <= sizeof text) {
    const ssize_t n = ::read(fd, text + total, want);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    total += static_cast<std::size_t>(n);
    const std::string_view lines = CompleteLines({text, total});
    *parsed = linux_text::ParseCpuinfo(lines);
    if (n == 0 || !parsed->name || parsed->has_flags || lines.find("\n\n") != lines.npos) break;
    want = kCpuinfoNextRead;
  }
  ::close(fd);
  *length = total;
  return error;
}

Reading<std::string> ReadAttribute(const char* root, const char* path) {
  char text[kAttributeCapacity];
  std::size_t length = 0;
  if (const int error = ReadSmallFile(root, path, text, sizeof text, &length)) {
    return Failure<std::string>(error);
  }
  return Value(std::string(linux_text::FirstLine({text, length})));
}

}  // namespace

int ReadSmallFile(const char* root, const char* path, char* buffer, std::size_t capacity,
                  std::size_t* length) {
  const int fd = OpenUnder(root, path);
  if (fd < 0) return errno;
  std::size_t total = 0;
  int error = 0;
  while (true) {
    if (total == capacity) {
      error = EFBIG;
      break;
    }
    const ssize_t n = ::read(fd, buffer + total, capacity - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    if (n == 0) break;
    total += static_cast<std::size_t>(n);
  }
  ::close(fd);
  *length = total;
  return error;
}

int ReadKeyedNumbers(const char* root, const char* path, KeyedNumber* wanted, std::size_t count) {
  const int fd = OpenUnder(root, path);
  if (fd < 0) return errno;
  char text[kProcFileCapacity];
  std::size_t filled = 0;  // bytes read and not yet parsed: part of one line
  // Inside a line longer than the buffer, such as the Groups line of a
  // process in thousands of groups; no figure read here is on such a line.
  bool skipping = false;
  int error = 0;
  while (true) {
    if (filled == sizeof text) {
      filled = 0;
      skipping = true;
    }
    const ssize_t n = ::read(fd, text + filled, sizeof text - filled);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    if (n == 0) {
      // The end: a last line without its newline counts too.
      if (!skipping) linux_text::ParseKeyedNumbers({text, filled}, wanted, count);
      break;
    }
    filled += static_cast<std::size_t>(n);
    // Only whole lines, so that no number is taken while cut short.
    const std::size_t last_newline = std::string_view(text, filled).rfind('\n');
    if (last_newline == std::string_view::npos) continue;
    std::string_view lines(text, last_newline + 1);
    if (skipping) {
      lines.remove_prefix(lines.find('\n') + 1);
      skipping = false;
    }
    linux_text::ParseKeyedNumbers(lines, wanted, count);
    if (AllFound(wanted, count)) break;
    filled -= last_newline + 1;
    std::memmove(text, text + last_newline + 1, filled);
  }
  ::close(fd);
  return error;
}

Reading<std::uint64_t> ReadMemAvailable(const char* root) {
  KeyedNumber wanted[] = {{"MemAvailable", {}}};
  if (const int error = ReadKeyedNumbers(root, "/proc/meminfo", wanted, 1)) {
    return Failure<std::uint64_t>(error);
  }
  const auto bytes = KibToBytes(wanted[0].value);
  return bytes ? Value(*bytes) : Failure<std::uint64_t>(ENODATA);
}

std::optional<std::uint64_t> MemAvailableFromText(std::string_view text) {
  KeyedNumber wanted[] = {{"MemAvailable", {}}};
  linux_text::ParseKeyedNumbers(text, wanted, 1);
  return KibToBytes(wanted[0].value);
}

Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid) {
  if (pid <= 0) return Failure<ProcessMemory>(ESRCH);
  char path[64];
  ProcPath(pid, "/status", path);
  KeyedNumber wanted[kStatusKeys];
  WantStatus(wanted);
  if (const int error = ReadKeyedNumbers(root, path, wanted, kStatusKeys)) {
    return Failure<ProcessMemory>(error);
  }
  return ProcessMemoryFromNumbers(wanted);
}

Reading<ProcessMemory> ProcessMemoryFromStatusText(std::string_view text) {
  KeyedNumber wanted[kStatusKeys];
  WantStatus(wanted);
  linux_text::ParseKeyedNumbers(text, wanted, kStatusKeys);
  return ProcessMemoryFromNumbers(wanted);
}

Reading<ProcessCpuTimes> ReadProcessCpuTimes(const char* root, int pid) {
  if (pid <= 0) return Failure<ProcessCpuTimes>(ESRCH);
  char path[64];
  ProcPath(pid, "/stat", path);
  char text[kStatCapacity];
  std::size_t length = 0;
  if (const int error = ReadSmallFile(root, path, text, sizeof text, &length)) {
    return Failure<ProcessCpuTimes>(error);
  }
  // USER_HZ, fixed for the life of the process.
  static const long ticks_per_second = ::sysconf(_SC_CLK_TCK);
  if (ticks_per_second <= 0) return Failure<ProcessCpuTimes>(EINVAL);
  return ProcessCpuTimesFromStatText({text, length}, static_cast<std::uint64_t>(ticks_per_second));
}

Reading<ProcessCpuTimes> ProcessCpuTimesFromStatText(std::string_view text,
                                                     std::uint64_t ticks_per_second) {
  const auto times = linux_text::ParseStatTimes(text);
  if (!times || ticks_per_second == 0 || ticks_per_second > 1'000'000'000) {
    return Failure<ProcessCpuTimes>(EINVAL);
  }
  // Z: a zombie, whose parent has not reaped it; X: dead (proc(5)).
  if (times->state == 'Z' || times->state == 'X' || times->state == 'x') {
    return Failure<ProcessCpuTimes>(ESRCH);
  }
  const auto user = TicksToNs(times->utime_ticks, ticks_per_second);
  const auto system = TicksToNs(times->stime_ticks, ticks_per_second);
  const auto start = TicksToNs(times->start_ticks, ticks_per_second);
  if (!user || !system || !start) return Failure<ProcessCpuTimes>(EOVERFLOW);
  return Value(ProcessCpuTimes{*user, *system, *start, 0});
}

Reading<std::uint64_t> ReadUptimeNs(const char* root) {
  char text[kAttributeCapacity];
  std::size_t length = 0;
  if (const int error = ReadSmallFile(root, "/proc/uptime", text, sizeof text, &length)) {
    return Failure<std::uint64_t>(error);
  }
  const auto uptime = linux_text::ParseUptimeNs({text, length});
  return uptime ? Value(*uptime) : Failure<std::uint64_t>(EINVAL);
}

Reading<CpuinfoFacts> ReadCpuinfo(const char* root) {
  char first[kCpuinfoBlockCapacity];
  std::size_t length = 0;
  linux_text::CpuinfoFacts parsed;
  if (const int error = ReadFirstCpuinfoBlock(root, first, &length, &parsed)) {
    return Failure<CpuinfoFacts>(error);
  }
  std::unique_ptr<char[]> whole;
  if (!parsed.name) {
    whole = std::make_unique<char[]>(kCpuinfoCapacity);
    const int error = ReadSmallFile(root, "/proc/cpuinfo", whole.get(), kCpuinfoCapacity, &length);
    if (error != 0 && error != EFBIG) return Failure<CpuinfoFacts>(error);
    parsed = linux_text::ParseCpuinfo(CompleteLines({whole.get(), length}));
  }
  CpuinfoFacts facts;
  if (parsed.name) facts.name = std::string(*parsed.name);
  facts.avx2 = parsed.avx2;
  return Value(std::move(facts));
}

std::optional<std::string> ReadModelIdentifier(const char* root) {
  const auto product = ReadAttribute(root, "/sys/class/dmi/id/product_name");
  if (product.ok() && !product.value.empty()) return product.value;
  char bytes[kAttributeCapacity];
  std::size_t length = 0;
  if (ReadSmallFile(root, "/proc/device-tree/model", bytes, sizeof bytes, &length) != 0) {
    return std::nullopt;
  }
  // A device-tree string property keeps its NUL terminator.
  std::string model(bytes, length);
  while (!model.empty() && model.back() == '\0') model.pop_back();
  if (model.empty()) return std::nullopt;
  return model;
}

bool HasInternalBattery(const char* root) {
  constexpr const char* kClass = "/sys/class/power_supply";
  char path[kPathCapacity];
  if (!JoinPath(path, root, kClass)) return false;
  DIR* directory = ::opendir(path);
  if (directory == nullptr) return false;
  bool found = false;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] == '.') continue;
    const std::string supply = std::string(kClass) + "/" + entry->d_name;
    const auto type = ReadAttribute(root, (supply + "/type").c_str());
    if (!type.ok()) continue;
    // Most supplies have no scope attribute; only peripherals say "Device".
    const auto scope = ReadAttribute(root, (supply + "/scope").c_str());
    if (linux_text::IsInternalBattery(type.value, scope.ok() ? scope.value : "")) {
      found = true;
      break;
    }
  }
  ::closedir(directory);
  return found;
}

}  // namespace vemora::platform::linux_files
