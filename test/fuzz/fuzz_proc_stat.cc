// The /proc/<pid>/stat parse step: CPU times and start in nanoseconds, or why
// there are none, whatever the command name holds.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "check.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto parsed = vemora::platform::linux_text::ParseStatTimes(text);
  const auto times = vemora::platform::linux_files::ProcessCpuTimesFromStatText(text, 100);
  if (!parsed) {
    VEMORA_FUZZ_CHECK(!times.ok() && times.error == EINVAL);
    return 0;
  }
  // The fields come after the name's last ')', which the parse must have seen.
  VEMORA_FUZZ_CHECK(text.find(')') != std::string_view::npos);
  if (!times.ok()) {
    VEMORA_FUZZ_CHECK(times.error == ESRCH || times.error == EOVERFLOW);
    return 0;
  }
  // 100 ticks per second: each figure is a whole number of 10 ms ticks.
  VEMORA_FUZZ_CHECK(times.value.user_ns == parsed->utime_ticks * 10'000'000 &&
                    times.value.system_ns == parsed->stime_ticks * 10'000'000 &&
                    times.value.start_ns == parsed->start_ticks * 10'000'000);
  return 0;
}
