// A process's CPU times on Linux: /proc/<pid>/stat, sysconf(_SC_CLK_TCK) and
// clock_gettime(CLOCK_BOOTTIME), else /proc/uptime.
#include <time.h>

#include <cerrno>
#include <cstdint>

#include "platform/diagnostics.h"
#include "platform/linux/linux_files.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kRoot = "";

// The clock of starttime: the time since boot, suspend included (proc(5)).
// CLOCK_BOOTTIME reads it without a file; kernels before 2.6.39 lack it.
Reading<std::uint64_t> TimeSinceBootNs() {
  struct timespec now {};
  if (::clock_gettime(CLOCK_BOOTTIME, &now) == 0) {
    return Value(static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                 static_cast<std::uint64_t>(now.tv_nsec));
  }
  const auto uptime = linux_files::ReadUptimeNs(kRoot);
  if (!uptime.ok()) WriteErrno("/proc/uptime", uptime.error);
  return uptime;
}

}  // namespace

Reading<ProcessCpuTimes> process_cpu_times(int pid) {
  auto times = linux_files::ReadProcessCpuTimes(kRoot, pid);
  if (!times.ok()) {
    char source[64];
    linux_files::ProcPath(pid, "/stat", source);
    WriteErrno(source, times.error);
    return times;
  }
  const auto now = TimeSinceBootNs();
  if (!now.ok()) return Failure<ProcessCpuTimes>(now.error);
  times.value.read_at_ns = now.value;
  return times;
}

}  // namespace vemora::platform
