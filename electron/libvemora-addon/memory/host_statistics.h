// The page size and the VM page counters, read under one host port that is
// given back on every path.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace vemora_utils {

enum class VmStatistics { k64Bit, k32Bit };

// False when a reading failed; its diagnostic is then already written.
bool read_host_vm_statistics(VmStatistics flavour, std::uint64_t* page_size_bytes,
                             vemora::platform::VmPageCounts* counts);

}  // namespace vemora_utils
