// Memory readings on Linux: sysinfo(2), sysconf(3), /proc/meminfo and
// /proc/<pid>/status. Linux has no Metal and no global wire limit.
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/linux/linux_files.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kRoot = "";

Reading<VmPageCounts> vm_page_counts() {
  const auto meminfo = linux_files::ReadMeminfo(kRoot);
  if (!meminfo.ok()) return Failure<VmPageCounts>(meminfo.error);
  return linux_files::PageCountsFromMeminfo(meminfo.value,
                                            static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)));
}

}  // namespace

Reading<std::uint64_t> physical_memory_bytes() {
  // sysinfo's totalram is the kernel's totalram_pages, the same count that
  // /proc/meminfo prints as MemTotal, without reading and parsing the file.
  struct sysinfo info {};
  if (::sysinfo(&info) != 0) return Failure<std::uint64_t>(errno);
  return Value(std::uint64_t{info.totalram} * info.mem_unit);
}

Reading<std::uint64_t> global_user_wire_limit_bytes() { return Failure<std::uint64_t>(ENOENT); }

HostPort host_port_acquire() { return 0; }
void host_port_release(HostPort) {}

Reading<std::uint64_t> host_page_size_bytes(HostPort) {
  const long page_size = ::sysconf(_SC_PAGESIZE);
  if (page_size <= 0) return Failure<std::uint64_t>(EINVAL);
  return Value(static_cast<std::uint64_t>(page_size));
}

Reading<VmPageCounts> host_vm_statistics64(HostPort) { return vm_page_counts(); }
// Linux keeps one set of counters; both flavours read it.
Reading<VmPageCounts> host_vm_statistics32(HostPort) { return vm_page_counts(); }

Reading<SwapUsage> swap_usage() {
  // sysinfo's totalswap and freeswap come from si_swapinfo, as /proc/meminfo's
  // SwapTotal and SwapFree do: the same counts, without the file.
  struct sysinfo info {};
  if (::sysinfo(&info) != 0) return Failure<SwapUsage>(errno);
  const std::uint64_t total = std::uint64_t{info.totalswap} * info.mem_unit;
  const std::uint64_t free = std::uint64_t{info.freeswap} * info.mem_unit;
  if (free > total) return Failure<SwapUsage>(ENODATA);
  return Value(SwapUsage{total, total - free});
}

Reading<ProcessMemory> process_memory(int pid) {
  return linux_files::ReadProcessMemory(kRoot, pid);
}

Object metal_device_create() { return nullptr; }
void metal_device_release(Object) {}
std::uint64_t metal_recommended_working_set_bytes(Object) { return 0; }
std::optional<std::string> metal_device_name(Object) { return std::nullopt; }
bool metal_device_supports_family(Object, long) { return false; }

// No Objective-C runtime: a pool is only a token.
Object autorelease_pool_push() {
  static const char token = 0;
  return &token;
}
void autorelease_pool_pop(Object) {}

// The standard error stream stands for the system log.
void system_log(const char* message) {
  std::fprintf(stderr, "%s\n", message);
  std::fflush(stderr);
}

}  // namespace vemora::platform
