// The /proc/meminfo parse step and the page counts derived from it.
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/linux_files.h"

namespace files = vemora::platform::linux_files;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const files::Meminfo m = files::MeminfoFromText({reinterpret_cast<const char*>(data), size});
  for (const std::uint64_t page_bytes : {0, 4096, 16384}) {
    const auto counts = files::PageCountsFromMeminfo(m, page_bytes);
    if (!counts.ok()) continue;
    // Free and reclaimable pages make up MemAvailable, less what rounding down
    // to whole pages drops; free pages are never more than MemFree.
    const auto& c = counts.value;
    const std::uint64_t counted = (std::uint64_t{c.free_count} + c.inactive_count) * page_bytes;
    VEMORA_FUZZ_CHECK(counted <= *m.available_bytes &&
                      *m.available_bytes - counted < 2 * page_bytes);
    VEMORA_FUZZ_CHECK(std::uint64_t{c.free_count} * page_bytes <= *m.free_bytes);
    VEMORA_FUZZ_CHECK(*m.unevictable_bytes / page_bytes == c.wire_count && c.purgeable_count == 0);
  }
  return 0;
}
