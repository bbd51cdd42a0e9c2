// The memory facts on macOS: sysctl, Mach host statistics, proc_pid_rusage
// and Metal's recommended working set. On Apple silicon the GPU's memory is a
// share of the unified RAM: its working set, and the headroom under the
// kernel's limit on wired memory. A process's CPU time is not measured here.
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "platform/darwin/apple.h"
#include "platform/darwin/apple_metal_observer.h"
#include "platform/diagnostics.h"
#include "platform/platform.h"

namespace vemora_utils {
namespace {

namespace apple = vemora::platform::apple;

constexpr std::uint64_t kInt64Max = std::numeric_limits<long long>::max();

enum class VmStatistics { k64Bit, k32Bit };

// The page size and the VM page counters, read under one host port that is
// given back as soon as the last statistic is read, and on every path.
bool ReadHostVmStatistics(VmStatistics flavour, std::uint64_t* page_size_bytes,
                          apple::VmPageCounts* counts) {
  const apple::HostPort port = apple::host_port_acquire();
  const auto page_size = apple::host_page_size(port);
  if (!page_size.ok()) {
    apple::host_port_release(port);
    vemora::platform::WriteLine("Failed to get host page size.");
    return false;
  }
  const bool wide = flavour == VmStatistics::k64Bit;
  const auto stats = wide ? apple::host_statistics64(port) : apple::host_statistics32(port);
  apple::host_port_release(port);
  if (!stats.ok()) {
    vemora::platform::WriteLine(wide ? "Failed to get 64-bit VM statistics."
                                     : "Failed to get VM statistics.");
    return false;
  }
  *page_size_bytes = page_size.value;
  *counts = stats.value;
  return true;
}

}  // namespace

// What vm_stat and Activity Monitor count as reclaimable at once: free pages,
// inactive pages (clean or compressible, taken back without a page-in) and
// purgeable pages that their owners marked discardable (XNU's
// osfmk/mach/vm_statistics.h).
long long count_available_physical_ram() {
  std::uint64_t page_size_bytes = 0;
  apple::VmPageCounts counts;
  if (!ReadHostVmStatistics(VmStatistics::k64Bit, &page_size_bytes, &counts)) return -1;
  // Three 32-bit counters cannot overflow 64 bits; the product can.
  const std::uint64_t available_pages =
      std::uint64_t{counts.free_count} + counts.inactive_count + counts.purgeable_count;
  if (page_size_bytes == 0 || available_pages > kInt64Max / page_size_bytes) {
    vemora::platform::WriteLine("Available physical memory exceeds the supported range.");
    return -1;
  }
  return static_cast<long long>(available_pages * page_size_bytes);
}

bool get_system_swap_usage(unsigned long long* used, unsigned long long* total) {
  const auto swap = apple::sysctl_vm_swapusage();
  if (!swap.ok()) {
    vemora::platform::WriteErrno("sysctl failed", swap.error);
    return false;
  }
  *used = swap.value.used_bytes;
  *total = swap.value.total_bytes;
  return true;
}

long long AppleMetalObserver::getMachinePhysicalRAM() {
  const auto memsize = apple::sysctl_hw_memsize();
  if (!memsize.ok()) {
    vemora::platform::WriteErrno("sysctl", memsize.error);
    return -1;
  }
  return static_cast<long long>(memsize.value);
}

long long AppleMetalObserver::getAvailableRAM() { return count_available_physical_ram(); }

long long AppleMetalObserver::getUsedRAM() {
  const long long total_bytes = getMachinePhysicalRAM();
  const long long available_bytes = count_available_physical_ram();
  if (total_bytes < 0 || available_bytes < 0) return -1;
  return total_bytes > available_bytes ? total_bytes - available_bytes : 0;
}

long long AppleMetalObserver::getMachinePhysicalVRAM() {
  const apple::Scoped<apple::MetalDevice, apple::metal_device_release> device(
      apple::metal_device_create());
  if (!device) {
    apple::ns_log("Metal is not supported on this device");
    return -1;
  }
  const std::uint64_t working_set_bytes = apple::metal_recommended_working_set_bytes(device.get());
  if (working_set_bytes > kInt64Max) {
    apple::ns_log("Metal recommended working set exceeds the supported range");
    return -1;
  }
  return static_cast<long long>(working_set_bytes);
}

long long AppleMetalObserver::getGlobalUserWireLimit() {
  const auto limit = apple::sysctlbyname_u64("vm.global_user_wire_limit");
  if (!limit.ok()) {
    vemora::platform::WriteErrno("sysctl vm.global_user_wire_limit", limit.error);
    return -1;
  }
  // A limit with its top bit set comes out negative, which callers treat as a
  // failure.
  return static_cast<long long>(limit.value);
}

long long AppleMetalObserver::getSystemWiredMemory() {
  std::uint64_t page_size_bytes = 0;
  apple::VmPageCounts counts;
  if (!ReadHostVmStatistics(VmStatistics::k64Bit, &page_size_bytes, &counts)) return -1;
  const std::uint64_t wired_bytes = std::uint64_t{counts.wire_count} * page_size_bytes;
  if (wired_bytes > kInt64Max) {
    vemora::platform::WriteLine("System wired memory exceeds the supported range.");
    return -1;
  }
  return static_cast<long long>(wired_bytes);
}

bool AppleMetalObserver::allocatableBytes(unsigned long long* bytes) {
  std::uint64_t page_size_bytes = 0;
  apple::VmPageCounts counts;
  if (!ReadHostVmStatistics(VmStatistics::k32Bit, &page_size_bytes, &counts)) return false;
  *bytes = (std::uint64_t{counts.free_count} + counts.inactive_count + counts.purgeable_count) *
           page_size_bytes;
  return true;
}

}  // namespace vemora_utils

using vemora_utils::AppleMetalObserver;

long long getMachinePhysicalRAM_Mac() { return AppleMetalObserver::getMachinePhysicalRAM(); }
long long getAvailableRAM_Mac() { return AppleMetalObserver::getAvailableRAM(); }
long long getUsedRAM_Mac() { return AppleMetalObserver::getUsedRAM(); }
long long getMachinePhysicalVRAM_Mac() { return AppleMetalObserver::getMachinePhysicalVRAM(); }

long long getAvailableVRAM_Mac() {
  // All three are asked, in this order, even after a failure, so each failing
  // query leaves its own diagnostic.
  const long long working_set_bytes = AppleMetalObserver::getMachinePhysicalVRAM();
  const long long wire_limit_bytes = AppleMetalObserver::getGlobalUserWireLimit();
  const long long wired_bytes = AppleMetalObserver::getSystemWiredMemory();
  if (working_set_bytes < 0 || wire_limit_bytes < 0 || wired_bytes < 0) return -1;
  const long long headroom_bytes = std::max(wire_limit_bytes - wired_bytes, 0LL);
  return std::min(headroom_bytes, working_set_bytes);
}

namespace {

vemora::platform::Reading<vemora::platform::ProcessMemory> ReadResourceUsage(int pid) {
  const auto usage = vemora::platform::apple::proc_pid_rusage(pid);
  if (!usage.ok()) std::cerr << "Failed to retrieve resource usage for pid " << pid << std::endl;
  return usage;
}

}  // namespace

long long getProcessUsedRAM_Mac(int pid) {
  const auto usage = ReadResourceUsage(pid);
  if (!usage.ok()) return -1;
  return static_cast<long long>(std::max(usage.value.resident_bytes, usage.value.footprint_bytes));
}

// ---- The facts the shared logic asks for -----------------------------------------

namespace vemora::platform {
namespace {

// The Mac figures say -1 after writing their diagnostic, whichever of their
// calls failed.
Reading<std::uint64_t> FromSigned(long long bytes) {
  if (bytes < 0) return Failure<std::uint64_t>(-1);
  return Value(static_cast<std::uint64_t>(bytes));
}

}  // namespace

Reading<std::uint64_t> physical_memory_bytes() { return FromSigned(getMachinePhysicalRAM_Mac()); }

Reading<std::uint64_t> available_memory_bytes() { return FromSigned(getAvailableRAM_Mac()); }

Reading<std::uint64_t> allocatable_memory_bytes() {
  unsigned long long bytes = 0;
  if (!AppleMetalObserver::allocatableBytes(&bytes)) return Failure<std::uint64_t>(-1);
  return Value<std::uint64_t>(bytes);
}

Reading<SwapUsage> swap_usage() {
  unsigned long long used = 0;
  unsigned long long total = 0;
  if (!vemora_utils::get_system_swap_usage(&used, &total)) return Failure<SwapUsage>(-1);
  return Value(SwapUsage{total, used});
}

Reading<ProcessMemory> process_memory(int pid) { return ReadResourceUsage(pid); }

// macOS gives no CPU figure here: the caller learns so from the exception,
// before anything is read or written.
Reading<ProcessCpuTimes> process_cpu_times(int /*pid*/) {
  throw std::runtime_error("GetCpuUsage not yet implemented for Mac!");
}

Reading<std::uint64_t> gpu_memory_bytes() { return FromSigned(getMachinePhysicalVRAM_Mac()); }

Reading<std::uint64_t> gpu_available_memory_bytes() { return FromSigned(getAvailableVRAM_Mac()); }

system::GpuLiveMemoryReport gpu_memory_by_device() {
  // Unified memory has no per-device figures to report.
  return {system::Result{system::ResultCode::Error, "Not implemented"}, {}};
}

}  // namespace vemora::platform
