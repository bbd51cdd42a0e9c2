// The machine-wide memory figures: which counters are summed, the range
// checks, the failure values and their diagnostics, and the order in which
// the GPU-usable figure asks its three readings.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "memory/apple_metal_observer.h"
#include "memory/memory_observer.h"
#include "platform_test.h"

namespace {

using vemora::platform::Failure;
using vemora::platform::Value;
using vemora::platform::VmPageCounts;
using vemora_utils::AppleMetalObserver;
using vemora_utils::MemoryObserver;

constexpr long long kGiB = 1LL << 30;
constexpr std::uint64_t kTopBit = 1ULL << 63;

struct FigureRow {
  std::string name;
  std::function<void(fake::Script&)> arrange;
  std::function<long long()> figure;
  long long expected;
  std::string expected_stderr;
  std::vector<std::string> expected_log = {};
};

class MemoryFigures : public PlatformTestWithParam<FigureRow> {};

TEST_P(MemoryFigures, AnswersAndDiagnoses) {
  const FigureRow& row = GetParam();
  row.arrange(script());
  long long figure = 0;
  EXPECT_EQ(CaptureStderr([&] { figure = row.figure(); }), row.expected_stderr);
  EXPECT_EQ(figure, row.expected);
  EXPECT_EQ(fake::system_log_lines(), row.expected_log);
}

const auto kAvailable = [] { return MemoryObserver().getAvailableRAM(); };
const auto kUsed = [] { return MemoryObserver::getUsedRAM(); };
const auto kWired = [] { return AppleMetalObserver::getSystemWiredMemory(); };
const auto kVram = [] { return MemoryObserver::getMachinePhysicalVRAM(); };
const auto kAvailableVram = [] { return MemoryObserver().getAvailableVRAM(); };
const auto kPhysical = [] { return MemoryObserver::getMachinePhysicalRAM(); };

void Vram(fake::Script& s, long long limit, long long wired_bytes, long long working_set) {
  s.wire_limit = Value<std::uint64_t>(limit);
  s.page_size = Value<std::uint64_t>(16384);
  s.vm64.value.wire_count = static_cast<std::uint32_t>(wired_bytes / 16384);
  s.working_set = working_set;
}

INSTANTIATE_TEST_SUITE_P(Rows, MemoryFigures,
                         ::testing::Values(
                             FigureRow{"m2_free_inactive_purgeable_pages", [](fake::Script&) {},
                                       kAvailable, 2'621'440'000, ""},
                             FigureRow{"active_and_wired_pages_do_not_count",
                                       [](fake::Script& s) { s.vm64.value.wire_count = 4000000; },
                                       kAvailable, 2'621'440'000, ""},
                             FigureRow{
                                 "page_size_zero_is_out_of_range",
                                 [](fake::Script& s) { s.page_size = Value<std::uint64_t>(0); },
                                 kAvailable, -1,
                                 "Available physical memory exceeds the supported range.\n"},
                             FigureRow{"page_count_at_the_int64_limit_is_accepted",
                                       [](fake::Script& s) {
                                         s.page_size = Value<std::uint64_t>(1ULL << 31);
                                         s.vm64 = Value(VmPageCounts{0xFFFFFFFF, 0, 0, 0});
                                       },
                                       kAvailable, static_cast<long long>(kTopBit - (1ULL << 31)),
                                       ""},
                             FigureRow{"one_page_past_the_int64_limit",
                                       [](fake::Script& s) {
                                         s.page_size = Value<std::uint64_t>(1ULL << 31);
                                         s.vm64 = Value(VmPageCounts{0xFFFFFFFF, 1, 0, 0});
                                       },
                                       kAvailable, -1,
                                       "Available physical memory exceeds the supported range.\n"},
                             FigureRow{
                                 "page_size_unreadable",
                                 [](fake::Script& s) { s.page_size = Failure<std::uint64_t>(5); },
                                 kAvailable, -1, "Failed to get host page size.\n"},
                             FigureRow{"vm_statistics64_unreadable",
                                       [](fake::Script& s) { s.vm64 = Failure<VmPageCounts>(5); },
                                       kAvailable, -1, "Failed to get 64-bit VM statistics.\n"},
                             FigureRow{"used_is_physical_minus_available", [](fake::Script&) {},
                                       kUsed, 64 * kGiB - 2'621'440'000, ""},
                             FigureRow{"used_never_negative",
                                       [](fake::Script& s) {
                                         s.physical_memory = Value<std::uint64_t>(1 << 20);
                                       },
                                       kUsed, 0, ""},
                             FigureRow{"used_when_memsize_unreadable",
                                       [](fake::Script& s) {
                                         s.physical_memory = Failure<std::uint64_t>(1);
                                       },
                                       kUsed, -1, "sysctl: Operation not permitted\n"},
                             FigureRow{"physical_ram_as_read", [](fake::Script&) {}, kPhysical,
                                       64 * kGiB, ""},
                             FigureRow{
                                 "wired_page_size_zero_is_zero",
                                 [](fake::Script& s) { s.page_size = Value<std::uint64_t>(0); },
                                 kWired, 0, ""},
                             FigureRow{"wired_product_with_top_bit_set",
                                       [](fake::Script& s) {
                                         s.page_size = Value<std::uint64_t>(1ULL << 32);
                                         s.vm64.value.wire_count = 1U << 31;
                                       },
                                       kWired, -1,
                                       "System wired memory exceeds the supported range.\n"},
                             FigureRow{"working_set_at_int64_max",
                                       [](fake::Script& s) { s.working_set = kTopBit - 1; }, kVram,
                                       static_cast<long long>(kTopBit - 1), ""},
                             FigureRow{
                                 "working_set_of_2_63",
                                 [](fake::Script& s) { s.working_set = kTopBit; },
                                 kVram,
                                 -1,
                                 "",
                                 {"Metal recommended working set exceeds the supported range"}},
                             FigureRow{"no_metal_device",
                                       [](fake::Script& s) { s.metal_device = false; },
                                       kVram,
                                       -1,
                                       "",
                                       {"Metal is not supported on this device"}},
                             FigureRow{
                                 "vram_headroom_under_the_wire_limit",
                                 [](fake::Script& s) { Vram(s, 48 * kGiB, 40 * kGiB, 36 * kGiB); },
                                 kAvailableVram, 8 * kGiB, ""},
                             FigureRow{
                                 "vram_wired_above_the_limit_is_zero",
                                 [](fake::Script& s) { Vram(s, 48 * kGiB, 50 * kGiB, 36 * kGiB); },
                                 kAvailableVram, 0, ""},
                             FigureRow{
                                 "vram_capped_by_the_working_set",
                                 [](fake::Script& s) { Vram(s, 48 * kGiB, 10 * kGiB, 36 * kGiB); },
                                 kAvailableVram, 36 * kGiB, ""},
                             FigureRow{"vram_wire_limit_with_top_bit_is_a_failure",
                                       [](fake::Script& s) {
                                         s.wire_limit = Value<std::uint64_t>(kTopBit);
                                       },
                                       kAvailableVram, -1, ""},
                             FigureRow{"vram_every_reading_fails_and_each_says_so",
                                       [](fake::Script& s) {
                                         s.metal_device = false;
                                         s.wire_limit = Failure<std::uint64_t>(2);
                                         s.vm64 = Failure<VmPageCounts>(5);
                                       },
                                       kAvailableVram,
                                       -1,
                                       "sysctl vm.global_user_wire_limit: No such file or "
                                       "directory\n"
                                       "Failed to get 64-bit VM statistics.\n",
                                       {"Metal is not supported on this device"}}),
                         [](const auto& row_info) { return row_info.param.name; });

// The three readings are asked in a fixed order, even when one fails.
TEST_F(PlatformTest, AvailableVramAsksAllThreeReadingsInOrder) {
  for (const bool wired_fails : {false, true}) {
    fake::reset();
    if (wired_fails) script().vm64 = Failure<VmPageCounts>(5);
    std::vector<std::string> asked;
    CaptureStderr([] { MemoryObserver().getAvailableVRAM(); });
    for (const std::string& call : fake::calls()) {
      if (call == "metal_recommended_working_set_bytes" || call == "global_user_wire_limit_bytes" ||
          call == "host_vm_statistics64") {
        asked.push_back(call);
      }
    }
    EXPECT_EQ(asked,
              (std::vector<std::string>{"metal_recommended_working_set_bytes",
                                        "global_user_wire_limit_bytes", "host_vm_statistics64"}));
  }
}

// Used RAM still asks the page counters when the memory size is unreadable.
TEST_F(PlatformTest, UsedRamAsksAvailableAfterMemsizeFails) {
  script().physical_memory = Failure<std::uint64_t>(1);
  CaptureStderr([] { MemoryObserver::getUsedRAM(); });
  const auto& calls = fake::calls();
  EXPECT_NE(std::find(calls.begin(), calls.end(), "host_vm_statistics64"), calls.end());
}

}  // namespace
