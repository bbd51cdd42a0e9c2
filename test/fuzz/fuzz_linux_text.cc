// The Linux parsers, every one on each input, and what each answer must keep.
// Breaking a property aborts, so libFuzzer keeps the input as a crash artifact,
// as it does for a sanitizer report.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"

namespace {

namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;

// An expression, so that a checker may also `return` it.
#define CHECK(condition)                                                                        \
  ((condition)                                                                                  \
       ? void()                                                                                 \
       : (std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition), \
          std::abort()))

// A value inside text, on one line (or empty).
bool OnOneLine(std::string_view value, std::string_view text) {
  return value.empty() ||
         (value.data() >= text.data() && value.data() + value.size() <= text.data() + text.size() &&
          value.find('\n') == value.npos);
}

// ... and not empty, with no blank at either end (nor a CR at its end).
bool Trimmed(std::string_view value, std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  return !value.empty() && OnOneLine(value, text) && !blank(value.front()) &&
         !blank(value.back()) && value.back() != '\r';
}

// /proc: meminfo's and status's KiB figures in bytes, or why there are none;
// the CPU's name one trimmed value from one line, and avx2 only on a flags
// line; a stat line's times in nanoseconds, whatever the command name holds.
void Proc(std::string_view input) {
  if (const auto available = files::MemAvailableFromText(input))
    CHECK(input.find("MemAvailable") != input.npos && *available % 1024 == 0);
  const auto usage = files::ProcessMemoryFromStatusText(input);
  if (!usage.ok()) CHECK(usage.error == EINVAL || usage.error == EOVERFLOW);
  CHECK(usage.value.resident_bytes % 1024 == 0 && usage.value.footprint_bytes % 1024 == 0);
  const auto cpu = text::ParseCpuinfo(input);
  if (cpu.name) CHECK(Trimmed(*cpu.name, input));
  if (cpu.avx2) CHECK(cpu.has_flags && input.find("avx2") != input.npos);
  text::ParseUptimeNs(input);
  const auto parsed = text::ParseStatTimes(input);
  const auto times = files::ProcessCpuTimesFromStatText(input, 100);
  if (!parsed) return CHECK(!times.ok() && times.error == EINVAL);
  // The fields come after the name's last ')', which the parse must have seen.
  CHECK(input.find(')') != std::string_view::npos);
  if (!times.ok()) return CHECK(times.error == ESRCH || times.error == EOVERFLOW);
  // 100 ticks per second: each figure is a whole number of 10 ms ticks.
  CHECK(times.value.user_ns == parsed->utime_ticks * 10'000'000 &&
        times.value.system_ns == parsed->stime_ticks * 10'000'000 &&
        times.value.start_ns == parsed->start_ticks * 10'000'000);
}

// sysfs and amdgpu.ids: an attribute's first line is trimmed, a uevent's
// values are whole lines' tails, a count is digits only, and a name from
// amdgpu.ids is one trimmed field of one line. The first four bytes choose the
// device id and revision looked up.
void Sysfs(std::string_view input, const std::uint8_t* data) {
  const std::string_view line = text::FirstLine(input);
  if (!line.empty()) CHECK(Trimmed(line, input.substr(0, input.find('\n'))));
  const auto uevent = text::ParsePciUevent(input);
  CHECK(OnOneLine(uevent.driver, input) && OnOneLine(uevent.pci_id, input) &&
        OnOneLine(uevent.slot, input));
  if (text::ParseCount(input))
    CHECK(!line.empty() && line.find_first_not_of("0123456789") == line.npos);
  text::ParseHexId(input);
  if (text::IsDrmCard(input)) CHECK(input.size() > 4 && input.substr(0, 4) == "card");
  if (input.size() < 4) return;
  const auto name = text::AmdgpuIdsName(input.substr(4), data[0] << 8 | data[1], data[2]);
  if (name) CHECK(Trimmed(*name, input));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  Proc(input);
  Sysfs(input, data);
  return 0;
}
