// The /proc/meminfo parse step: MemAvailable is found only where the text
// holds its key, and never past 64 bits.
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/linux_files.h"

namespace files = vemora::platform::linux_files;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto available = files::MemAvailableFromText(text);
  if (available)
    VEMORA_FUZZ_CHECK(text.find("MemAvailable") != text.npos && *available % 1024 == 0);
  return 0;
}
