// Whether an allocation is expected to fail: only when it exceeds the
// available RAM by more than the free swap. Unreadable figures answer false.
#pragma once

#include <cstddef>

namespace vemora_utils {

bool will_malloc_fail(std::size_t size);

}  // namespace vemora_utils
