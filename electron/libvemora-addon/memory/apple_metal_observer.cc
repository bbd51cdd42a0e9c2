#include "memory/apple_metal_observer.h"

#include <cstdint>
#include <limits>

#include "memory/diagnostics.h"
#include "memory/host_statistics.h"
#include "platform/platform.h"
#include "platform/scoped_object.h"

namespace vemora_utils {
namespace {

namespace platform = vemora::platform;

constexpr std::uint64_t kInt64Max = std::numeric_limits<long long>::max();

}  // namespace

long long count_available_physical_ram() {
  std::uint64_t page_size_bytes = 0;
  platform::VmPageCounts counts;
  if (!read_host_vm_statistics(VmStatistics::k64Bit, &page_size_bytes, &counts)) return -1;
  // Three 32-bit counters cannot overflow 64 bits; the product can.
  const std::uint64_t available_pages =
      std::uint64_t{counts.free_count} + counts.inactive_count + counts.purgeable_count;
  if (page_size_bytes == 0 || available_pages > kInt64Max / page_size_bytes) {
    write_raw("Available physical memory exceeds the supported range.\n");
    return -1;
  }
  return static_cast<long long>(available_pages * page_size_bytes);
}

long long AppleMetalObserver::getMachinePhysicalRAM() {
  const auto memsize = platform::physical_memory_bytes();
  if (!memsize.ok()) {
    write_errno("sysctl", memsize.error);
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
  const platform::Scoped<platform::metal_device_release> device(platform::metal_device_create());
  if (!device) {
    platform::system_log("Metal is not supported on this device");
    return -1;
  }
  const std::uint64_t working_set_bytes =
      platform::metal_recommended_working_set_bytes(device.get());
  if (working_set_bytes > kInt64Max) {
    platform::system_log("Metal recommended working set exceeds the supported range");
    return -1;
  }
  return static_cast<long long>(working_set_bytes);
}

long long AppleMetalObserver::getGlobalUserWireLimit() {
  const auto limit = platform::global_user_wire_limit_bytes();
  if (!limit.ok()) {
    write_errno("sysctl vm.global_user_wire_limit", limit.error);
    return -1;
  }
  // A limit with its top bit set comes out negative, which callers treat as a
  // failure.
  return static_cast<long long>(limit.value);
}

long long AppleMetalObserver::getSystemWiredMemory() {
  std::uint64_t page_size_bytes = 0;
  platform::VmPageCounts counts;
  if (!read_host_vm_statistics(VmStatistics::k64Bit, &page_size_bytes, &counts)) return -1;
  const std::uint64_t wired_bytes = std::uint64_t{counts.wire_count} * page_size_bytes;
  if (wired_bytes > kInt64Max) {
    write_raw("System wired memory exceeds the supported range.\n");
    return -1;
  }
  return static_cast<long long>(wired_bytes);
}

}  // namespace vemora_utils
