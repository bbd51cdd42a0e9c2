// The /proc/<pid>/status parse step: resident size and footprint.
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/linux_files.h"

namespace files = vemora::platform::linux_files;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto usage =
      files::ProcessMemoryFromStatusText({reinterpret_cast<const char*>(data), size});
  if (!usage.ok()) {
    VEMORA_FUZZ_CHECK(usage.error == EINVAL || usage.error == EOVERFLOW);
    return 0;
  }
  VEMORA_FUZZ_CHECK(usage.value.resident_bytes % 1024 == 0);
  VEMORA_FUZZ_CHECK(usage.value.footprint_bytes % 1024 == 0);
  return 0;
}
