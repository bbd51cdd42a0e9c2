// The Linux readers on whole machine trees under test/fixtures/machines: a
// real machine, and machines whose /proc files are missing, truncated,
// unreadable, oversized or hold extreme values. Each gives the figures the
// files imply or the errno of the step that failed.
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "platform/linux/linux_files.h"

namespace {

using vemora::platform::Failure;
using vemora::platform::ProcessMemory;
using vemora::platform::Reading;
using vemora::platform::Value;
using vemora::platform::VmPageCounts;
namespace files = vemora::platform::linux_files;

using Kib = std::optional<std::uint64_t>;
constexpr std::uint64_t kPageBytes = 4096;

std::string TreeRoot(const std::string& tree) { return VEMORA_FIXTURES "/machines/" + tree; }

template <typename Row>
std::string RowName(const ::testing::TestParamInfo<Row>& info) {
  std::string name = info.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

std::optional<std::uint64_t> Bytes(Kib kib) {
  return kib ? std::optional<std::uint64_t>(*kib * 1024) : std::nullopt;
}

struct MeminfoRow {
  std::string name;  // the tree
  int error;         // of ReadMeminfo
  Kib free, available, unevictable;
  Reading<VmPageCounts> pages;  // at 4 KiB pages
};

void PrintTo(const MeminfoRow& row, std::ostream* os) { *os << row.name; }

class MachineMeminfo : public ::testing::TestWithParam<MeminfoRow> {};

TEST_P(MachineMeminfo, FiguresOrErrno) {
  const MeminfoRow& row = GetParam();
  const auto meminfo = files::ReadMeminfo(TreeRoot(row.name).c_str());
  ASSERT_EQ(meminfo.error, row.error);
  if (!meminfo.ok()) return;
  const files::Meminfo& m = meminfo.value;
  EXPECT_EQ(m.free_bytes, Bytes(row.free));
  EXPECT_EQ(m.available_bytes, Bytes(row.available));
  EXPECT_EQ(m.unevictable_bytes, Bytes(row.unevictable));
  const auto pages = files::PageCountsFromMeminfo(m, kPageBytes);
  ASSERT_EQ(pages.error, row.pages.error);
  EXPECT_EQ(pages.value.free_count, row.pages.value.free_count);
  EXPECT_EQ(pages.value.inactive_count, row.pages.value.inactive_count);
  EXPECT_EQ(pages.value.purgeable_count, 0u);
  EXPECT_EQ(pages.value.wire_count, row.pages.value.wire_count);
}

INSTANTIATE_TEST_SUITE_P(
    Trees, MachineMeminfo,
    ::testing::Values(
        // MemAvailable is below MemFree on this idle VM: free pages stop at it.
        MeminfoRow{"debian12-x86_64-vm", 0, 24488680, 24414276, 10324,
                   Value(VmPageCounts{24414276 / 4, 0, 0, 10324 / 4})},
        MeminfoRow{"missing-proc-files", ENOENT, {}, {}, {}, {}},
        // Cut inside the Unevictable key: what came before is read, the rest
        // is missing, so there are no page counts.
        MeminfoRow{
            "truncated-proc-files", 0, 24488680, 24414276, {}, Failure<VmPageCounts>(ENODATA)},
        MeminfoRow{"unreadable-proc-files", EISDIR, {}, {}, {}, {}},
        // Padding past the read buffer: the figures come before it.
        MeminfoRow{"oversized-proc-files", 0, 24488680, 24414276, 10324,
                   Value(VmPageCounts{24414276 / 4, 0, 0, 10324 / 4})},
        // The kernel clamps MemAvailable at 0 when its reserves exceed what is free.
        MeminfoRow{"available-below-free", 0, 65536, 0, 10324,
                   Value(VmPageCounts{0, 0, 0, 10324 / 4})},
        // 16 TiB free is 2^32 pages of 4 KiB, one more than a 32-bit counter holds.
        MeminfoRow{"huge-values", 0, 17179869184, 17179869188, 0, Failure<VmPageCounts>(EOVERFLOW)},
        // 2^54 KiB is 2^64 bytes; the next value does not even fit in 64 bits.
        MeminfoRow{"values-past-64-bits", 0, 24488680, {}, 10324, Failure<VmPageCounts>(ENODATA)}),
    RowName<MeminfoRow>);

constexpr std::uint64_t k2To54 = 1ULL << 54;

struct ProcessRow {
  std::string name;
  std::string tree;
  int pid;
  Reading<ProcessMemory> expected;  // resident and footprint in bytes
};

void PrintTo(const ProcessRow& row, std::ostream* os) { *os << row.name; }

class MachineProcess : public ::testing::TestWithParam<ProcessRow> {};

TEST_P(MachineProcess, FiguresOrErrno) {
  const ProcessRow& row = GetParam();
  const auto usage = files::ReadProcessMemory(TreeRoot(row.tree).c_str(), row.pid);
  ASSERT_EQ(usage.error, row.expected.error);
  EXPECT_EQ(usage.value.resident_bytes, row.expected.value.resident_bytes);
  EXPECT_EQ(usage.value.footprint_bytes, row.expected.value.footprint_bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Trees, MachineProcess,
    ::testing::Values(
        ProcessRow{"debian_cp", "debian12-x86_64-vm", 4242,
                   Value(ProcessMemory{2280 * 1024, 156 * 1024})},
        ProcessRow{"debian_kernel_thread", "debian12-x86_64-vm", 2, Value(ProcessMemory{0, 0})},
        ProcessRow{"debian_no_such_pid", "debian12-x86_64-vm", 1, Failure<ProcessMemory>(ENOENT)},
        ProcessRow{"missing", "missing-proc-files", 4242, Failure<ProcessMemory>(ENOENT)},
        // Cut inside the RssAnon line: only VmRSS is known.
        ProcessRow{"truncated", "truncated-proc-files", 4242, Value(ProcessMemory{2280 * 1024, 0})},
        ProcessRow{"unreadable", "unreadable-proc-files", 4242, Failure<ProcessMemory>(EISDIR)},
        // 3000 supplementary groups push the status file past the read buffer.
        // A Groups line longer than the read buffer is skipped, not fatal.
        ProcessRow{"oversized", "oversized-proc-files", 4242,
                   Value(ProcessMemory{2280 * 1024, 156 * 1024})},
        // RssAnon + VmSwap is 2^64 - 1024 bytes: the largest sum that fits.
        ProcessRow{"huge", "huge-values", 4242,
                   Value(ProcessMemory{(k2To54 - 1) * 1024, ~std::uint64_t{0} - 1023})},
        // One KiB more of swap and the sum needs 65 bits.
        ProcessRow{"past_64_bits", "values-past-64-bits", 4242, Failure<ProcessMemory>(EOVERFLOW)}),
    RowName<ProcessRow>);

}  // namespace
