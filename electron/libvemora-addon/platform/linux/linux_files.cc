#include "platform/linux/linux_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <limits>
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
  std::size_t total = 0;
  std::size_t parsed = 0;  // the whole lines parsed so far
  int error = 0;
  while (true) {
    if (total == sizeof text) {
      error = EFBIG;
      break;
    }
    const ssize_t n = ::read(fd, text + total, sizeof text - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    if (n == 0) {
      // The end: a last line without its newline counts too.
      linux_text::ParseKeyedNumbers({text + parsed, total - parsed}, wanted, count);
      break;
    }
    total += static_cast<std::size_t>(n);
    // Only whole lines, so that no number is taken while cut short.
    const std::string_view fresh(text + parsed, total - parsed);
    const std::size_t last_newline = fresh.rfind('\n');
    if (last_newline == std::string_view::npos) continue;
    linux_text::ParseKeyedNumbers(fresh.substr(0, last_newline + 1), wanted, count);
    parsed += last_newline + 1;
    if (AllFound(wanted, count)) break;
  }
  ::close(fd);
  return error;
}

Reading<Meminfo> ReadMeminfo(const char* root) {
  KeyedNumber wanted[] = {{"MemFree", {}}, {"MemAvailable", {}}, {"Unevictable", {}}};
  if (const int error = ReadKeyedNumbers(root, "/proc/meminfo", wanted, std::size(wanted))) {
    return Failure<Meminfo>(error);
  }
  return Value(Meminfo{KibToBytes(wanted[0].value), KibToBytes(wanted[1].value),
                       KibToBytes(wanted[2].value)});
}

Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid) {
  if (pid <= 0) return Failure<ProcessMemory>(ESRCH);
  // "/proc/<pid>/status", the number written without printf's machinery.
  char path[64] = "/proc/";
  char* end = std::to_chars(path + 6, path + sizeof path, pid).ptr;
  std::memcpy(end, "/status", sizeof "/status");
  KeyedNumber wanted[] = {{"Pid", {}}, {"VmRSS", {}}, {"RssAnon", {}}, {"VmSwap", {}}};
  if (const int error = ReadKeyedNumbers(root, path, wanted, std::size(wanted))) {
    return Failure<ProcessMemory>(error);
  }
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

}  // namespace vemora::platform::linux_files
