#include "memory/allocation_check.h"

#include <cstdint>

#include "memory/apple_metal_observer.h"
#include "memory/diagnostics.h"
#include "memory/host_statistics.h"
#include "platform/platform.h"

namespace vemora_utils {

namespace platform = vemora::platform;

bool get_system_swap_usage(unsigned long long* used, unsigned long long* total) {
  const auto swap = platform::swap_usage();
  if (!swap.ok()) {
    write_errno("sysctl failed", swap.error);
    return false;
  }
  *used = swap.value.used_bytes;
  *total = swap.value.total_bytes;
  return true;
}

bool will_malloc_fail(std::size_t size) {
  // Without a page size there is no available figure to compare with, and
  // the check gives up as the other page-counting queries do.
  std::uint64_t page_size_bytes = 0;
  platform::VmPageCounts counts;
  if (!read_host_vm_statistics(VmStatistics::k32Bit, &page_size_bytes, &counts)) return false;
  // Unsigned 64-bit arithmetic, as the kernel's counters are.
  const std::uint64_t available_bytes =
      (std::uint64_t{counts.free_count} + counts.inactive_count + counts.purgeable_count) *
      page_size_bytes;
  if (size <= available_bytes) return false;
  const std::uint64_t shortfall_bytes = size - available_bytes;

  unsigned long long swap_used = 0;
  unsigned long long swap_total = 0;
  if (!get_system_swap_usage(&swap_used, &swap_total)) return false;
  const std::uint64_t swap_free_bytes = swap_total - swap_used;
  return shortfall_bytes > swap_free_bytes;
}

bool AppleMetalObserver::willFailToAllocate(long long size) {
  // A negative size arrives as 2^63 or more and exceeds any available RAM.
  return will_malloc_fail(static_cast<std::size_t>(size));
}

}  // namespace vemora_utils
