#include "memory/allocation_check.h"

#include <cstdint>

#include "platform/platform.h"

namespace vemora_utils {

namespace platform = vemora::platform;

bool will_malloc_fail(std::size_t size) {
  // Without the available figure there is nothing to compare with, and the
  // check gives up rather than guess.
  const auto available = platform::allocatable_memory_bytes();
  if (!available.ok()) return false;
  if (size <= available.value) return false;
  const std::uint64_t shortfall_bytes = size - available.value;
  // The swap is read only when the RAM alone does not cover the request.
  const auto swap = platform::swap_usage();
  if (!swap.ok()) return false;
  // Unsigned 64-bit arithmetic, as the kernel's counters are.
  const std::uint64_t swap_free_bytes = swap.value.total_bytes - swap.value.used_bytes;
  return shortfall_bytes > swap_free_bytes;
}

}  // namespace vemora_utils
