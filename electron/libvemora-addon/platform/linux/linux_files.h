// Readers of Linux's /proc and /sys files under a root directory: "" for the
// running machine, a fixture tree in tests.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace vemora::platform::linux_files {

// "/proc/<pid><file>" into path (64 bytes hold any int and the file names
// used here), the number written without printf's machinery.
template <std::size_t N>
void ProcPath(int pid, const char (&file)[N], char (&path)[64]) {
  static_assert(N <= 64 - sizeof "/proc/-2147483648");
  std::memcpy(path, "/proc/", 6);
  char* end = std::to_chars(path + 6, path + sizeof path, pid).ptr;
  std::memcpy(end, file, N);
}

// Reads a small file whole into buffer. Returns 0 and its length, or the
// errno of the failed step (EFBIG when it does not fit the buffer).
int ReadSmallFile(const char* root, const char* path, char* buffer, std::size_t capacity,
                  std::size_t* length);

// Reads a "Key: number" file such as /proc/meminfo until every wanted key is
// found or the file ends: the kernel writes the whole text on the first read,
// so one read usually does, without a second one that only finds the end.
// Returns 0, or the errno of the failed step.
int ReadKeyedNumbers(const char* root, const char* path, linux_text::KeyedNumber* wanted,
                     std::size_t count);

// MemAvailable of /proc/meminfo, in bytes: the kernel's estimate of what new
// allocations can get without swapping (Documentation/filesystems/proc.rst).
// ENODATA when the line is missing or malformed (kernels before 3.14).
Reading<std::uint64_t> ReadMemAvailable(const char* root);
// ReadMemAvailable's parse step, on the file's text.
std::optional<std::uint64_t> MemAvailableFromText(std::string_view text);

// Resident size (VmRSS) and footprint (RssAnon + VmSwap) from
// /proc/<pid>/status.
Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid);
// ReadProcessMemory's parse step, on the file's text.
Reading<ProcessMemory> ProcessMemoryFromStatusText(std::string_view text);

// utime + stime and starttime of /proc/<pid>/stat in nanoseconds
// (read_at_ns is left 0 for the caller's clock). ESRCH for a process that has
// ended but not been reaped (a zombie), EINVAL for a file that is not a stat
// line, EOVERFLOW for ticks past 64 bits of nanoseconds.
Reading<ProcessCpuTimes> ReadProcessCpuTimes(const char* root, int pid);
// ReadProcessCpuTimes's parse step, on the file's text, with the clock ticks
// per second of sysconf(_SC_CLK_TCK) (1 to 10^9).
Reading<ProcessCpuTimes> ProcessCpuTimesFromStatText(std::string_view text,
                                                     std::uint64_t ticks_per_second);
// /proc/uptime's time since boot, in nanoseconds: the clock of starttime
// (EINVAL when malformed).
Reading<std::uint64_t> ReadUptimeNs(const char* root);

// The CPU's name and AVX2 flag from one read of /proc/cpuinfo.
struct CpuinfoFacts {
  std::optional<std::string> name;
  bool avx2 = false;
};
Reading<CpuinfoFacts> ReadCpuinfo(const char* root);

// The machine's model: the firmware's product name
// (/sys/class/dmi/id/product_name), else the device tree's model
// (/proc/device-tree/model, without its NUL).
std::optional<std::string> ReadModelIdentifier(const char* root);

// Whether a supply under /sys/class/power_supply is the machine's own
// battery.
bool HasInternalBattery(const char* root);

}  // namespace vemora::platform::linux_files
