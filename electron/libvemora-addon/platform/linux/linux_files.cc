#include "platform/linux/linux_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <limits>
#include <memory>

#include "platform/linux/proc_text.h"

namespace vemora::platform::linux_files {
namespace {

using linux_text::KeyedNumber;

constexpr std::size_t kProcFileCapacity = 16384;

std::optional<std::uint64_t> KibToBytes(std::optional<std::uint64_t> kib) {
  if (!kib || *kib > std::numeric_limits<std::uint64_t>::max() / 1024) return std::nullopt;
  return *kib * 1024;
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
  char full_path[512];
  const int written = std::snprintf(full_path, sizeof full_path, "%s%s", root, path);
  if (written < 0 || static_cast<std::size_t>(written) >= sizeof full_path) return ENAMETOOLONG;
  const int fd = ::open(full_path, O_RDONLY | O_CLOEXEC);
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

Reading<Meminfo> ReadMeminfo(const char* root) {
  char text[kProcFileCapacity];
  std::size_t length = 0;
  if (const int error = ReadSmallFile(root, "/proc/meminfo", text, sizeof text, &length)) {
    return Failure<Meminfo>(error);
  }
  return Value(MeminfoFromText({text, length}));
}

Meminfo MeminfoFromText(std::string_view text) {
  KeyedNumber wanted[] = {{"MemTotal", {}},    {"MemFree", {}},   {"MemAvailable", {}},
                          {"Unevictable", {}}, {"SwapTotal", {}}, {"SwapFree", {}}};
  linux_text::ParseKeyedNumbers(text, wanted, std::size(wanted));
  return Meminfo{KibToBytes(wanted[0].value), KibToBytes(wanted[1].value),
                 KibToBytes(wanted[2].value), KibToBytes(wanted[3].value),
                 KibToBytes(wanted[4].value), KibToBytes(wanted[5].value)};
}

Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid) {
  if (pid <= 0) return Failure<ProcessMemory>(ESRCH);
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/status", pid);
  char text[kProcFileCapacity];
  std::size_t length = 0;
  if (const int error = ReadSmallFile(root, path, text, sizeof text, &length)) {
    return Failure<ProcessMemory>(error);
  }
  return ProcessMemoryFromStatusText({text, length});
}

Reading<ProcessMemory> ProcessMemoryFromStatusText(std::string_view text) {
  KeyedNumber wanted[] = {{"Pid", {}}, {"VmRSS", {}}, {"RssAnon", {}}, {"VmSwap", {}}};
  linux_text::ParseKeyedNumbers(text, wanted, std::size(wanted));
  // Kernel threads have no memory lines (proc(5)); they hold no user memory.
  // A file without its Pid line is not a status file.
  if (!wanted[0].value) return Failure<ProcessMemory>(EINVAL);
  const auto resident = KibToBytes(wanted[1].value.value_or(0));
  const auto anonymous = KibToBytes(wanted[2].value.value_or(0));
  const auto swapped = KibToBytes(wanted[3].value.value_or(0));
  if (!resident || !anonymous || !swapped || *anonymous > ~*swapped) {
    return Failure<ProcessMemory>(EOVERFLOW);
  }
  return Value(ProcessMemory{*resident, *anonymous + *swapped});
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
  char path[512];
  const int written = std::snprintf(path, sizeof path, "%s/proc/device-tree", root);
  if (written < 0 || static_cast<std::size_t>(written) >= sizeof path) return false;
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
  char path[512];
  const int written = std::snprintf(path, sizeof path, "%s%s", root, kClass);
  if (written < 0 || static_cast<std::size_t>(written) >= sizeof path) {
    return Failure<Types>(ENAMETOOLONG);
  }
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
