// The /proc/<pid>/status parse step: KiB figures in bytes, or why there are none.
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/linux_files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto usage = vemora::platform::linux_files::ProcessMemoryFromStatusText(
      {reinterpret_cast<const char*>(data), size});
  if (!usage.ok()) VEMORA_FUZZ_CHECK(usage.error == EINVAL || usage.error == EOVERFLOW);
  VEMORA_FUZZ_CHECK(usage.value.resident_bytes % 1024 == 0 &&
                    usage.value.footprint_bytes % 1024 == 0);
  return 0;
}
