// The /proc/<pid>/stat parse step: CPU times and start in nanoseconds, or why
// there are none, whatever the command name holds.
#include "check.h"

VEMORA_FUZZ_TARGET(stat) {
  const auto parsed = text::ParseStatTimes(stat);
  const auto times = files::ProcessCpuTimesFromStatText(stat, 100);
  if (!parsed) return VEMORA_FUZZ_CHECK(!times.ok() && times.error == EINVAL);
  // The fields come after the name's last ')', which the parse must have seen.
  VEMORA_FUZZ_CHECK(stat.find(')') != std::string_view::npos);
  if (!times.ok()) return VEMORA_FUZZ_CHECK(times.error == ESRCH || times.error == EOVERFLOW);
  // 100 ticks per second: each figure is a whole number of 10 ms ticks.
  VEMORA_FUZZ_CHECK(times.value.user_ns == parsed->utime_ticks * 10'000'000 &&
                    times.value.system_ns == parsed->stime_ticks * 10'000'000 &&
                    times.value.start_ns == parsed->start_ticks * 10'000'000);
}
