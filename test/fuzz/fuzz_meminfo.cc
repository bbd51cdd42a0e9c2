// The /proc/meminfo parse step and the page counts derived from it.
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "check.h"
#include "platform/linux/linux_files.h"

namespace files = vemora::platform::linux_files;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const files::Meminfo meminfo =
      files::MeminfoFromText({reinterpret_cast<const char*>(data), size});
  for (const auto& figure :
       {meminfo.free_bytes, meminfo.available_bytes, meminfo.unevictable_bytes}) {
    VEMORA_FUZZ_CHECK(!figure || *figure % 1024 == 0);  // the file counts KiB
  }
  for (const std::uint64_t page_bytes : {0, 4096, 16384, 65536}) {
    const auto counts = files::PageCountsFromMeminfo(meminfo, page_bytes);
    if (!counts.ok()) continue;
    const vemora::platform::VmPageCounts& c = counts.value;
    // Free and reclaimable pages make up MemAvailable, less what rounding
    // down to whole pages drops; free pages are never more than MemFree.
    const std::uint64_t counted = (std::uint64_t{c.free_count} + c.inactive_count) * page_bytes;
    VEMORA_FUZZ_CHECK(c.purgeable_count == 0);
    VEMORA_FUZZ_CHECK(counted <= *meminfo.available_bytes);
    VEMORA_FUZZ_CHECK(*meminfo.available_bytes - counted < 2 * page_bytes);
    VEMORA_FUZZ_CHECK(std::uint64_t{c.free_count} * page_bytes <= *meminfo.free_bytes);
    VEMORA_FUZZ_CHECK(*meminfo.unevictable_bytes / page_bytes == c.wire_count);
  }
  return 0;
}
