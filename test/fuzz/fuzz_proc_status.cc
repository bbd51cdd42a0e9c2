// The /proc/<pid>/status parse step: KiB figures in bytes, or why there are none.
#include "check.h"

VEMORA_FUZZ_TARGET(status) {
  const auto usage = files::ProcessMemoryFromStatusText(status);
  if (!usage.ok()) VEMORA_FUZZ_CHECK(usage.error == EINVAL || usage.error == EOVERFLOW);
  VEMORA_FUZZ_CHECK(usage.value.resident_bytes % 1024 == 0 &&
                    usage.value.footprint_bytes % 1024 == 0);
}
