// The Linux parsers and readers: /proc text, and the machine trees under
// test/fixtures/machines (see the README there).
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"

namespace {

namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;
using Number = std::optional<std::uint64_t>;

TEST(ProcText, KeyedNumbers) {
  const std::pair<const char*, Number> rows[] = {
      // clang-format off
      {"MemTotal:\t0\n", 0}, {"MemFree: 1 kB\nMemTotal:   2468", 2468},
      {"MemTotal: -5 kB\n", std::nullopt}, {"MemTotal: 5 MB\n", std::nullopt},
      {"MemTotal: 18446744073709551615 kB\n", 18446744073709551615ULL},
      {"MemTotal: 18446744073709551616 kB\n", std::nullopt},
      {"MemTotalX: 7 kB\nMemTotal: 8 kB\n", 8}, {"XMemTotal: 7 kB\n", std::nullopt},
      {"  MemTotal \t: 10 kB\n", 10}, {"MemTotal: 9 kB\r\n", 9}, {"MemTotal 9 kB\n", std::nullopt},
      // clang-format on
  };
  for (const auto& [content, expected] : rows) {
    text::KeyedNumber wanted[] = {{"MemTotal", {}}};
    text::ParseKeyedNumbers(content, wanted, 1);
    EXPECT_EQ(wanted[0].value, expected) << content;
  }
}

std::string Errno(int error) { return strerrorname_np(error); }
std::string Kib(Number bytes) { return bytes ? std::to_string(*bytes / 1024) : "-"; }

// Each reader under a tree's root, as text: Meminfo MemAvailable; Status a PID's resident size and
// footprint; Stat whether a PID's CPU times are read; Survey CPU name, avx2 | model | battery.
std::string Meminfo(const char* root, int) {
  const auto available = files::ReadMemAvailable(root);
  return available.ok() ? Kib(available.value) + " kB" : Errno(available.error);
}
std::string Status(const char* root, int pid) {
  const auto usage = files::ReadProcessMemory(root, pid);
  return usage.ok()
             ? Kib(usage.value.resident_bytes) + " " + Kib(usage.value.footprint_bytes) + " kB"
             : Errno(usage.error);
}
std::string Stat(const char* root, int pid) {
  const auto times = files::ReadProcessCpuTimes(root, pid);
  return times.ok() ? "read" : Errno(times.error);
}
std::string Survey(const char* root, int) {
  const auto cpu = files::ReadCpuinfo(root);
  return (cpu.ok() ? cpu.value.name.value_or("-") + (cpu.value.avx2 ? ", avx2" : "")
                   : Errno(cpu.error)) +
         " | " + files::ReadModelIdentifier(root).value_or("-") + " | " +
         (files::HasInternalBattery(root) ? "battery" : "no battery");
}

struct TreeRow {
  const char* tree;
  std::string (*read)(const char* root, int pid);
  int pid;
  const char* expected;
};
// clang-format off
const TreeRow kTrees[] = {
    {"debian12-x86_64-vm", Status, 2, "0 0 kB"},  // a kernel thread
    {"debian12-x86_64-vm", Status, 0, "ESRCH"},
    // The mouse's battery (scope "Device") is not the machine's; BAT0 is.
    {"laptop-x86_64-handmade", Survey, 0, "ENOENT | XPS 13 9310 | battery"},
    {"raspberrypi4-arm64-handmade", Survey, 0, "BCM2835 | Raspberry Pi 4 Model B Rev 1.4 | no battery"},
    {"no-such-tree", Meminfo, 0, "ENOENT"},
    {"unreadable-proc-files", Status, 4242, "EISDIR"},
    // MemAvailable last, cut by the end of the first read, with no final newline; then past a
    // Groups line longer than the buffer.
    {"oversized-proc-files", Meminfo, 0, "24414276 kB"}, {"oversized-proc-files", Status, 4242, "2280 156 kB"},
    // RssAnon + VmSwap of 2^64 - 1024 bytes; 2^64 - 1 ticks.
    {"huge-values", Status, 4242, "18014398509481983 18014398509481983 kB"}, {"huge-values", Stat, 4242, "EOVERFLOW"},
    // MemAvailable of 2^64 bytes; RssAnon + VmSwap of 2^64 bytes; 2^64 ticks.
    {"values-past-64-bits", Meminfo, 0, "ENODATA"}, {"values-past-64-bits", Status, 4242, "EOVERFLOW"},
    {"values-past-64-bits", Stat, 4242, "EINVAL"},
    {"odd-process-stat", Stat, 4244, "ESRCH"},  // a zombie
    {"odd-process-stat", Stat, 4245, "EINVAL"},  // cut inside starttime
};
// clang-format on

TEST(MachineTrees, Read) {
  for (const auto& [tree, read, pid, expected] : kTrees) {
    const std::string root = VEMORA_FIXTURES "/machines/" + std::string(tree);
    EXPECT_EQ(read(root.c_str(), pid), expected) << tree << ", PID " << pid;
  }
}

TEST(CpuTimes, UptimeAndStatText) {
  const std::pair<const char*, Number> uptimes[] = {
      {"0.1234567891", 123'456'789}, {"915. 1", std::nullopt}, {"18446744074.00 1", std::nullopt}};
  for (const auto& [content, expected] : uptimes) {
    EXPECT_EQ(text::ParseUptimeNs(content), expected) << content;
  }
  // A name of ") 1 2": only the last ')' ends it. 3 ticks per second do not divide 10^9.
  const auto odd = files::ProcessCpuTimesFromStatText(
      "7 () 1 2) S 1 1 1 1 1 1 1 1 1 1 4 5 0 0 0 0 0 0 7 1\n", 3);
  ASSERT_TRUE(odd.ok());
  EXPECT_EQ(std::make_tuple(odd.value.user_ns, odd.value.system_ns, odd.value.start_ns),
            std::make_tuple(1'333'333'333ull, 1'666'666'666ull, 2'333'333'333ull));
}

TEST(SurveyTexts, CpuinfoArchitectureAndBattery) {
  const auto flags = text::ParseCpuinfo("model name\t: X\nflags\t\t: fpu avx2x avx512f\n");
  EXPECT_EQ(std::make_tuple(flags.name, flags.has_flags, flags.avx2),
            std::make_tuple(std::optional<std::string_view>("X"), true, false));
  EXPECT_TRUE(text::ParseCpuinfo("flags\t: sse avx2\r\n").avx2);
  EXPECT_EQ(text::ArchitectureOf("i686"), vemora::system::CpuArchitecture::Unknown);
  EXPECT_TRUE(text::IsInternalBattery("Battery", "System"));
  EXPECT_FALSE(text::IsInternalBattery("Battery", "Device"));
}

}  // namespace
