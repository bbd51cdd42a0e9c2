// Whether an allocation is expected to fail: the boundaries at the available
// RAM and at the free swap, negative sizes, and unreadable figures.
#include "memory/allocation_check.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "memory/memory_observer.h"
#include "platform_test.h"

namespace {

using vemora::platform::Failure;
using vemora::platform::SwapUsage;
using vemora::platform::Value;
using vemora::platform::VmPageCounts;

// The default script: 16 KiB pages, 100000 + 50000 + 10000 available pages.
constexpr long long kAvailable = 2'621'440'000;
constexpr std::uint64_t kSwapTotal = 2'147'483'648;

template <typename T>
using Reading = vemora::platform::Reading<T>;

struct AllocationRow {
  std::string name;
  long long size;
  Reading<SwapUsage> swap;
  Reading<VmPageCounts> vm32;
  bool expected;
  bool swap_read;
  std::string expected_stderr;
};

class AllocationCheck : public PlatformTestWithParam<AllocationRow> {};

TEST_P(AllocationCheck, Answers) {
  const AllocationRow& row = GetParam();
  script().swap = row.swap;
  script().vm32 = row.vm32;
  bool answer = false;
  EXPECT_EQ(
      CaptureStderr([&] { answer = vemora_utils::MemoryObserver().willFailToAllocate(row.size); }),
      row.expected_stderr);
  EXPECT_EQ(answer, row.expected);
  const auto& calls = fake::calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "swap_usage"), row.swap_read ? 1 : 0);
}

const auto kSwap1900Used = Value(SwapUsage{kSwapTotal, 1'900'000'000});
const auto kSwap1500Used = Value(SwapUsage{kSwapTotal, 1'500'000'000});
const auto kM2Pages = Value(VmPageCounts{100000, 50000, 10000, 0});

INSTANTIATE_TEST_SUITE_P(
    Rows, AllocationCheck,
    ::testing::Values(AllocationRow{"zero_bytes", 0, kSwap1900Used, kM2Pages, false, false, ""},
                      AllocationRow{"exactly_the_available_ram", kAvailable, kSwap1900Used,
                                    kM2Pages, false, false, ""},
                      AllocationRow{"one_byte_more_reads_the_swap", kAvailable + 1, kSwap1900Used,
                                    kM2Pages, false, true, ""},
                      AllocationRow{"shortfall_above_free_swap", 3'000'000'000, kSwap1900Used,
                                    kM2Pages, true, true, ""},
                      AllocationRow{"shortfall_below_free_swap", 3'000'000'000, kSwap1500Used,
                                    kM2Pages, false, true, ""},
                      AllocationRow{"shortfall_equal_to_free_swap",
                                    kAvailable + static_cast<long long>(kSwapTotal - 1'900'000'000),
                                    kSwap1900Used, kM2Pages, false, true, ""},
                      AllocationRow{"negative_size_exceeds_everything", -1, kSwap1500Used, kM2Pages,
                                    true, true, ""},
                      AllocationRow{"swap_unreadable_answers_false", 1LL << 62,
                                    Failure<SwapUsage>(1), kM2Pages, false, true,
                                    "sysctl failed: Operation not permitted\n"},
                      AllocationRow{"vm_statistics_unreadable_answers_false", 1LL << 62,
                                    kSwap1500Used, Failure<VmPageCounts>(5), false, false,
                                    "Failed to get VM statistics.\n"}),
    [](const auto& row_info) { return row_info.param.name; });

// Uses the 32-bit counters, not the 64-bit ones the available figure reads.
TEST_F(PlatformTest, AllocationCheckReadsThe32BitCounters) {
  script().vm64 = Failure<VmPageCounts>(5);
  EXPECT_FALSE(vemora_utils::will_malloc_fail(1));
  EXPECT_EQ(std::count(fake::calls().begin(), fake::calls().end(), "host_vm_statistics32"), 1);
}

TEST_F(PlatformTest, AllocationCheckGivesUpWithoutAPageSize) {
  script().page_size = Failure<std::uint64_t>(5);
  bool answer = true;
  EXPECT_EQ(CaptureStderr([&] { answer = vemora_utils::will_malloc_fail(1ULL << 62); }),
            "Failed to get host page size.\n");
  EXPECT_FALSE(answer);
}

TEST_F(PlatformTest, SwapUsageOutParametersUntouchedOnFailure) {
  unsigned long long used = 7, total = 9;
  script().swap = Value(SwapUsage{100, 40});
  ASSERT_TRUE(vemora_utils::get_system_swap_usage(&used, &total));
  EXPECT_EQ(used, 40u);
  EXPECT_EQ(total, 100u);
  script().swap = Failure<SwapUsage>(1);
  CaptureStderr([&] { EXPECT_FALSE(vemora_utils::get_system_swap_usage(&used, &total)); });
  EXPECT_EQ(used, 40u);
  EXPECT_EQ(total, 100u);
}

}  // namespace
