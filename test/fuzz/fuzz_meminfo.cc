// The /proc/meminfo parse step: MemAvailable is found only where the text
// holds its key, and never past 64 bits.
#include "check.h"

VEMORA_FUZZ_TARGET(meminfo) {
  const auto available = files::MemAvailableFromText(meminfo);
  if (available)
    VEMORA_FUZZ_CHECK(meminfo.find("MemAvailable") != meminfo.npos && *available % 1024 == 0);
}
