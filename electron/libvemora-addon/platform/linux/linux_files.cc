#include "platform/linux/linux_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
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

// The keys each file is read for, and what their numbers make.
constexpr std::size_t kMeminfoKeys = 3;
void WantMeminfo(KeyedNumber (&wanted)[kMeminfoKeys]) {
  wanted[0] = {"MemFree", {}};
  wanted[1] = {"MemAvailable", {}};
  wanted[2] = {"Unevictable", {}};
}
Meminfo MeminfoFromNumbers(const KeyedNumber (&found)[kMeminfoKeys]) {
  return Meminfo{KibToBytes(found[0].value), KibToBytes(found[1].value),
                 KibToBytes(found[2].value)};
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

// A sysfs attribute holds one line of at most a page.
constexpr std::size_t kAttributeCapacity = 4096;
// Big enough for the first processors of any machine; the brand is in the
// first block, and ARM boards print theirs after a handful of cores.
constexpr std::size_t kCpuinfoCapacity = 256 * 1024;

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

Reading<Meminfo> ReadMeminfo(const char* root) {
  KeyedNumber wanted[kMeminfoKeys];
  WantMeminfo(wanted);
  if (const int error = ReadKeyedNumbers(root, "/proc/meminfo", wanted, kMeminfoKeys)) {
    return Failure<Meminfo>(error);
  }
  return Value(MeminfoFromNumbers(wanted));
}

Meminfo MeminfoFromText(std::string_view text) {
  KeyedNumber wanted[kMeminfoKeys];
  WantMeminfo(wanted);
  linux_text::ParseKeyedNumbers(text, wanted, kMeminfoKeys);
  return MeminfoFromNumbers(wanted);
}

Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid) {
  if (pid <= 0) return Failure<ProcessMemory>(ESRCH);
  // "/proc/<pid>/status", the number written without printf's machinery.
  char path[64] = "/proc/";
  char* end = std::to_chars(path + 6, path + sizeof path, pid).ptr;
  std::memcpy(end, "/status", sizeof "/status");
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

Reading<VmPageCounts> PageCountsFromMeminfo(const Meminfo& meminfo, std::uint64_t page_size_bytes) {
  if (!meminfo.free_bytes || !meminfo.available_bytes || !meminfo.unevictable_bytes) {
    return Failure<VmPageCounts>(ENODATA);
  }
  if (page_size_bytes == 0) return Failure<VmPageCounts>(EINVAL);
  // MemAvailable is the kernel's estimate of what new allocations can get
  // without swapping: free pages plus the reclaimable page cache and slab,
  // less the reserves (Documentation/filesystems/proc.rst). That is what free
  // + inactive + purgeable stands for on macOS, so the free pages stay free,
  // the reclaimable rest counts as inactive and nothing as purgeable; the sum
  // is then exactly MemAvailable. Locked and unevictable memory is what Linux
  // cannot page out: the closest thing to wired memory.
  const std::uint64_t available = *meminfo.available_bytes;
  const std::uint64_t free = std::min(*meminfo.free_bytes, available);
  const std::uint64_t counts[] = {free / page_size_bytes, (available - free) / page_size_bytes,
                                  *meminfo.unevictable_bytes / page_size_bytes};
  for (const std::uint64_t pages : counts) {
    if (pages > std::numeric_limits<std::uint32_t>::max()) return Failure<VmPageCounts>(EOVERFLOW);
  }
  VmPageCounts result;
  result.free_count = static_cast<std::uint32_t>(counts[0]);
  result.inactive_count = static_cast<std::uint32_t>(counts[1]);
  result.purgeable_count = 0;
  result.wire_count = static_cast<std::uint32_t>(counts[2]);
  return Value(result);
}

Reading<std::string> ReadCpuinfoModelName(const char* root) {
  const auto text = std::make_unique<char[]>(kCpuinfoCapacity);
  std::size_t length = 0;
  const int error = ReadSmallFile(root, "/proc/cpuinfo", text.get(), kCpuinfoCapacity, &length);
  if (error != 0 && error != EFBIG) return Failure<std::string>(error);
  const auto name = linux_text::CpuinfoModelName({text.get(), length});
  if (!name) return Failure<std::string>(ENODATA);
  return Value(std::string(*name));
}

Reading<std::string> ReadDmiProductName(const char* root) {
  return ReadAttribute(root, "/sys/class/dmi/id/product_name");
}

bool HasDeviceTree(const char* root) {
  char path[kPathCapacity];
  if (!JoinPath(path, root, "/proc/device-tree")) return false;
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

Reading<std::string> ReadDeviceTreeModel(const char* root) {
  char bytes[kAttributeCapacity];
  std::size_t length = 0;
  if (const int error =
          ReadSmallFile(root, "/proc/device-tree/model", bytes, sizeof bytes, &length)) {
    return Failure<std::string>(error);
  }
  return Value(std::string(bytes, length));
}

Reading<std::vector<std::optional<std::string>>> ReadPowerSourceTypes(const char* root) {
  using Types = std::vector<std::optional<std::string>>;
  constexpr const char* kClass = "/sys/class/power_supply";
  char path[kPathCapacity];
  if (!JoinPath(path, root, kClass)) return Failure<Types>(ENAMETOOLONG);
  DIR* directory = ::opendir(path);
  if (directory == nullptr) return Failure<Types>(errno);
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  ::closedir(directory);
  std::sort(names.begin(), names.end());

  Types types;
  for (const std::string& name : names) {
    const std::string supply = std::string(kClass) + "/" + name;
    const auto type = ReadAttribute(root, (supply + "/type").c_str());
    if (!type.ok()) {
      types.emplace_back();
      continue;
    }
    // Most supplies have no scope attribute; only peripherals say "Device".
    const auto scope = ReadAttribute(root, (supply + "/scope").c_str());
    types.emplace_back(linux_text::PowerSourceType(type.value, scope.ok() ? scope.value : ""));
  }
  return Value(std::move(types));
}

}  // namespace vemora::platform::linux_files
