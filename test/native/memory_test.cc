// The memory figures, the allocation check, a process's memory and the byte
// formatter on the scripted M2 Max: 16 KiB pages, 100000 free, 50000 inactive,
// 10000 purgeable and 200000 wired; a 48 GiB wire limit and working set;
// 1 GiB of 2 GiB swap free.
#include <clocale>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "memory/format_bytes.h"
#include "memory/memory_observer.h"
#include "memory/process_usage.h"
#include "platform_test.h"

namespace {

using namespace vemora::platform;
using apple::VmPageCounts;
using vemora_utils::MemoryObserver;
using S = fake::Script&;

constexpr long long kGiB = 1LL << 30, kAvailable = 2'621'440'000, kFreeSwap = kGiB;
constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr const char* kRange = "Available physical memory exceeds the supported range.\n";

// Page counts at the int64 limit: (2^32 - 1 + inactive) pages of 2^31 bytes.
void Huge(S s, std::uint32_t inactive) {
  s.page_size = Value<std::uint64_t>(1ULL << 31);
  s.vm64 = Value(VmPageCounts{0xFFFFFFFF, inactive, 0, 0});
}
void Wire(S s, long long limit_gib, long long wired_gib, long long working_set_gib) {
  s.wire_limit = Value<std::uint64_t>(limit_gib * kGiB);
  s.vm64.value.wire_count = static_cast<std::uint32_t>(wired_gib * kGiB / 16384);
  s.working_set = working_set_gib * kGiB;
}

// clang-format off
Reading<std::uint64_t> U64(std::uint64_t value) { return Value(value); }
void Keep(S) {}
void NoStats64(S s) { s.vm64 = Failure<VmPageCounts>(5); }
void NoSwap(S s) { s.swap = Failure<SwapUsage>(1); }

long long Available() { return MemoryObserver().getAvailableRAM(); }
long long Used() { return MemoryObserver::getUsedRAM(); }
long long WorkingSet() { return MemoryObserver::getMachinePhysicalVRAM(); }
long long VramNow() { return MemoryObserver().getAvailableVRAM(); }
template <long long kBytes> long long Fails() { return MemoryObserver().willFailToAllocate(kBytes); }
template <int kPid> long long Process() { return MemoryObserver::getProcessUsedRAM(kPid); }
// -2: it threw, and what it said is in the diagnostics.
template <int kPid> long long Cpu() {
  try { return static_cast<long long>(vemora_utils::GetCpuUsage(kPid, 1000)); }
  catch (const std::runtime_error& e) { std::cerr << "threw: " << e.what() << '\n'; }
  return -2;
}
// clang-format on

struct Row {
  const char* name;
  void (*arrange)(S);
  long long (*figure)();
  long long expected;
  const char* diagnostics;  // the standard error stream, NSLog's lines among them
};
class Figures : public ::testing::TestWithParam<Row> {};

TEST_P(Figures, AnswerAndDiagnostics) {
  const Row& row = GetParam();
  row.arrange(fake::script());
  long long figure = 0;
  std::string said = CaptureStderr([&] { figure = row.figure(); });
  EXPECT_EQ(figure, row.expected);
  EXPECT_EQ(said, row.diagnostics);
}

// clang-format off
const Row kRows[] = {
    {"available_is_free_inactive_purgeable", Keep, Available, kAvailable, ""},
    {"available_page_size_zero", [](S s) { s.page_size = U64(0); }, Available, -1, kRange},
    {"available_at_the_int64_limit", [](S s) { Huge(s, 0); }, Available, kMax - (1LL << 31) + 1, ""},
    {"available_one_page_past_it", [](S s) { Huge(s, 1); }, Available, -1, kRange},
    {"available_page_size_unreadable", [](S s) { s.page_size = Failure<std::uint64_t>(5); }, Available, -1,
     "Failed to get host page size.\n"},
    {"used_is_physical_less_available", Keep, Used, 64 * kGiB - kAvailable, ""},
    {"used_never_negative", [](S s) { s.physical_memory = U64(1 << 20); }, Used, 0, ""},
    {"used_memsize_unreadable_still_asks_the_pages", [](S s) { s.physical_memory = Failure<std::uint64_t>(1); NoStats64(s); }, Used, -1,
     "sysctl: Operation not permitted\nFailed to get 64-bit VM statistics.\n"},
    {"working_set_at_int64_max", [](S s) { s.working_set = kMax; }, WorkingSet, kMax, ""},
    {"working_set_of_2_63", [](S s) { s.working_set = 1ULL << 63; }, WorkingSet, -1,
     "NSLog: Metal recommended working set exceeds the supported range\n"},
    {"vram_headroom_under_the_wire_limit", [](S s) { Wire(s, 48, 40, 36); }, VramNow, 8 * kGiB, ""},
    {"vram_wired_above_the_limit_is_zero", [](S s) { Wire(s, 48, 50, 36); }, VramNow, 0, ""},
    {"vram_capped_by_the_working_set", [](S s) { Wire(s, 48, 10, 36); }, VramNow, 36 * kGiB, ""},
    {"vram_page_size_zero_wires_nothing", [](S s) { s.page_size = U64(0); }, VramNow, 48 * kGiB, ""},
    {"vram_wire_limit_with_top_bit", [](S s) { s.wire_limit = U64(1ULL << 63); }, VramNow, -1, ""},
    {"vram_wired_bytes_past_int64", [](S s) { s.page_size = U64(1ULL << 32); s.vm64.value.wire_count = 1U << 31; },
     VramNow, -1, "System wired memory exceeds the supported range.\n"},
    // All three readings are asked, in this order, even after the first has failed.
    {"vram_every_reading_fails_and_says_so", [](S s) { s.metal_device = false; s.wire_limit = Failure<std::uint64_t>(2); NoStats64(s); },
     VramNow, -1, "NSLog: Metal is not supported on this device\n"
                  "sysctl vm.global_user_wire_limit: No such file or directory\nFailed to get 64-bit VM statistics.\n"},
    // The swap is unreadable in the first two rows: the diagnostic tells whether it was read.
    {"alloc_the_available_ram_reads_no_swap", NoSwap, Fails<kAvailable>, false, ""},
    {"alloc_one_byte_more_reads_the_swap", NoSwap, Fails<kAvailable + 1>, false, "sysctl failed: Operation not permitted\n"},
    {"alloc_shortfall_equal_to_free_swap", Keep, Fails<kAvailable + kFreeSwap>, false, ""},
    {"alloc_shortfall_above_free_swap", Keep, Fails<kAvailable + kFreeSwap + 1>, true, ""},
    {"alloc_negative_size", Keep, Fails<-1>, true, ""},
    {"alloc_32_bit_statistics_unreadable", [](S s) { s.vm32 = Failure<VmPageCounts>(5); }, Fails<1LL << 62>, false,
     "Failed to get VM statistics.\n"},
    {"process_footprint_larger_than_resident", [](S s) { s.processes[42] = Value(ProcessMemory{420'000'000, 500'000'000}); },
     Process<42>, 500'000'000, ""},
    {"process_no_such_pid", Keep, Process<43>, -1, "Failed to retrieve resource usage for pid 43\n"},
    {"process_pid_zero", Keep, Process<0>, -1, "Failed to get used RAM for PID '0' since PID must be positive!\n"},
    {"process_pid_negative", Keep, Process<-5>, -1, "Failed to get used RAM for PID '-5' since PID must be positive!\n"},
    {"cpu_usage_pid_zero", Keep, Cpu<0>, -1, "Failed to get CPU usage for PID '0' since PID must be positive!\n"},
    {"cpu_usage_pid_negative", Keep, Cpu<-3>, -1, "Failed to get CPU usage for PID '-3' since PID must be positive!\n"},
    {"cpu_usage_positive_pid_not_measured", Keep, Cpu<1>, -2, "threw: GetCpuUsage not yet implemented for Mac!\n"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, Figures, ::testing::ValuesIn(kRows), ByName);

TEST(FormatBytes, StepsAt1024AndDividesBy1000) {
  const std::pair<long long, const char*> rows[] = {
      // clang-format off
      {0, "0 Bytes"}, {1023, "1023 Bytes"}, {1024, "1.02 KB"}, {1'048'575, "1048.58 KB"},
      {1LL << 20, "1.05 MB"}, {1LL << 30, "1.07 GB"}, {1LL << 50, "1125.90 TB"}, {kMax, "9223372.04 TB"},
      {-1, "-1 Bytes"}, {std::numeric_limits<long long>::min(), "-9223372036854775808 Bytes"},
      // clang-format on
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(formatBytes(bytes), text) << bytes;
}

TEST(FormatBytes, UsesAPointWhateverTheLocale) {
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no German locale";
  EXPECT_EQ(formatBytes(1500), "1.50 KB");
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace
