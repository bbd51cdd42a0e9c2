// The memory facts on Linux: sysinfo(2), /proc/meminfo and /proc/<pid>/status.
#include <sys/sysinfo.h>

#include <cerrno>

#include "platform/diagnostics.h"
#include "platform/linux/linux_files.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kRoot = "";

// 0, or the errno of a failed sysinfo(2) after its diagnostic.
int SysInfo(struct sysinfo* info) {
  if (::sysinfo(info) == 0) return 0;
  const int error = errno;
  WriteErrno("sysinfo", error);
  return error;
}

}  // namespace

Reading<std::uint64_t> physical_memory_bytes() {
  // sysinfo's totalram is the kernel's totalram_pages, the same count that
  // /proc/meminfo prints as MemTotal, without reading and parsing the file.
  struct sysinfo info {};
  if (const int error = SysInfo(&info)) return Failure<std::uint64_t>(error);
  return Value(std::uint64_t{info.totalram} * info.mem_unit);
}

Reading<std::uint64_t> available_memory_bytes() {
  const auto available = linux_files::ReadMemAvailable(kRoot);
  if (available.error == ENODATA) {
    WriteLine("/proc/meminfo: no MemAvailable line (Linux 3.14 or later has one)");
  } else if (!available.ok()) {
    WriteErrno("/proc/meminfo", available.error);
  }
  return available;
}

Reading<std::uint64_t> allocatable_memory_bytes() { return available_memory_bytes(); }

Reading<SwapUsage> swap_usage() {
  // sysinfo's totalswap and freeswap come from si_swapinfo, as /proc/meminfo's
  // SwapTotal and SwapFree do: the same counts, without the file.
  struct sysinfo info {};
  if (const int error = SysInfo(&info)) return Failure<SwapUsage>(error);
  const std::uint64_t total = std::uint64_t{info.totalswap} * info.mem_unit;
  const std::uint64_t free = std::uint64_t{info.freeswap} * info.mem_unit;
  return Value(SwapUsage{total, free < total ? total - free : 0});
}

Reading<ProcessMemory> process_memory(int pid) {
  const auto usage = linux_files::ReadProcessMemory(kRoot, pid);
  if (!usage.ok()) {
    char source[64];
    linux_files::ProcPath(pid, "/status", source);
    WriteErrno(source, usage.error);
  }
  return usage;
}

}  // namespace vemora::platform
