// Whether an allocation is expected to fail: only when it exceeds the
// available RAM by more than the free swap. Unreadable figures answer false.
#pragma once

#include <cstddef>

namespace vemora_utils {

bool will_malloc_fail(std::size_t size);

// Swap figures in bytes; false (out-parameters untouched) when unreadable.
bool get_system_swap_usage(unsigned long long* used, unsigned long long* total);

}  // namespace vemora_utils
