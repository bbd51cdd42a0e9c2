#include "memory/memory_observer.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "memory/allocation_check.h"
#include "platform/diagnostics.h"
#include "platform/platform.h"

namespace vemora_utils {
namespace {

namespace platform = vemora::platform;

// A figure with its top bit set comes out negative, which callers treat as a
// failure, as they do -1.
long long Signed(const platform::Reading<std::uint64_t>& bytes) {
  return bytes.ok() ? static_cast<long long>(bytes.value) : -1;
}

}  // namespace

long long MemoryObserver::getMachinePhysicalRAM() {
  return Signed(platform::physical_memory_bytes());
}

long long MemoryObserver::getAvailableRAM() const {
  return Signed(platform::available_memory_bytes());
}

long long MemoryObserver::getUsedRAM() {
  // Both are asked even after the first failed, so each says why.
  const long long total_bytes = getMachinePhysicalRAM();
  const long long available_bytes = Signed(platform::available_memory_bytes());
  if (total_bytes < 0 || available_bytes < 0) return -1;
  return std::max(total_bytes - available_bytes, 0LL);
}

long long MemoryObserver::getMachinePhysicalVRAM() { return Signed(platform::gpu_memory_bytes()); }

long long MemoryObserver::getAvailableVRAM() const {
  return Signed(platform::gpu_available_memory_bytes());
}

vemora::system::GpuLiveMemoryReport MemoryObserver::getAvailableVRAMByDevice() {
  return platform::gpu_memory_by_device();
}

long long MemoryObserver::getProcessUsedRAM(int pid) {
  if (pid <= 0) {
    vemora::platform::WritePidFailure("used RAM", pid, "PID must be positive!");
    return -1;
  }
  const auto usage = platform::process_memory(pid);
  if (!usage.ok()) return -1;
  return Signed(platform::Value(std::max(usage.value.resident_bytes, usage.value.footprint_bytes)));
}

bool MemoryObserver::willFailToAllocate(long long size) const {
  // A negative size arrives as 2^63 or more and exceeds any available RAM.
  return will_malloc_fail(static_cast<std::size_t>(size));
}

}  // namespace vemora_utils
