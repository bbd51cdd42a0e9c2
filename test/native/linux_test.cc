// The Linux parsers and readers: /proc text, the machine trees under
// test/fixtures/machines (see the README there), the survey decoders, and the
// CF-like objects of the Linux platform.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace {

namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;
namespace platform = vemora::platform;
using Number = std::optional<std::uint64_t>;

TEST(ProcText, KeyedNumbers) {
  const std::pair<const char*, Number> rows[] = {
      // clang-format off
      {"MemTotal:       24684096 kB\nMemFree: 1 kB\n", 24684096}, {"MemTotal:\t4242\n", 4242},
      {"MemFree: 1 kB\n", std::nullopt}, {"MemFree: 1 kB\nMemTotal:   2468", 2468},
      {"MemFree: 1 kB\nMemTo", std::nullopt}, {"MemTotal: lots kB\n", std::nullopt},
      {"MemTotal: -5 kB\n", std::nullopt}, {"MemTotal: 5 MB\n", std::nullopt},
      {"MemTotal: 18446744073709551615 kB\n", 18446744073709551615ULL},
      {"MemTotal: 18446744073709551616 kB\n", std::nullopt},
      {"MemTotalX: 7 kB\nMemTotal: 8 kB\n", 8}, {"XMemTotal: 7 kB\n", std::nullopt},
      {"  MemTotal \t: 10 kB\n", 10}, {"MemTotal: 11: kB\n", std::nullopt},
      {"MemTotal: 9 kB\r\n", 9}, {"MemTotal 9 kB\n", std::nullopt},
      // clang-format on
  };
  for (const auto& [content, expected] : rows) {
    text::KeyedNumber wanted[] = {{"MemTotal", {}}};
    text::ParseKeyedNumbers(content, wanted, 1);
    EXPECT_EQ(wanted[0].value, expected) << content;
  }
}

// Whole lines only: a pipe hands over a line longer than two read buffers,
// then a number in two reads, the first ending inside it, and no final newline.
TEST(LinuxFiles, KeyedNumbersAcrossReads) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const std::string head = std::string(40000, 'x') + "\nMemFree: 12";
  ASSERT_EQ(::write(ends[1], head.data(), head.size()), static_cast<ssize_t>(head.size()));
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(::write(ends[1], "34 kB", 5), 5);
    ::close(ends[1]);
  });
  text::KeyedNumber wanted[] = {{"MemFree", {}}};
  const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
  EXPECT_EQ(files::ReadKeyedNumbers("", path.c_str(), wanted, 1), 0);
  writer.join();
  ::close(ends[0]);
  EXPECT_EQ(wanted[0].value, 1234u);
}

// Free and reclaimable pages make up MemAvailable; no tree has it above MemFree.
TEST(LinuxFiles, PageCountsFromMeminfo) {
  const auto counts = files::PageCountsFromMeminfo({4096 * 10, 4096 * 25, 4096 * 3}, 4096);
  ASSERT_TRUE(counts.ok());
  const platform::VmPageCounts& c = counts.value;
  EXPECT_EQ(std::make_tuple(c.free_count, c.inactive_count, c.purgeable_count, c.wire_count),
            std::make_tuple(10u, 15u, 0u, 3u));
  EXPECT_EQ(files::PageCountsFromMeminfo({1, 1, 1}, 0).error, EINVAL);
}

// ---- Machine trees: what each reader gives, as text ------------------------------------

std::string Errno(int error) { return strerrorname_np(error); }
std::string Kib(Number bytes) { return bytes ? std::to_string(*bytes / 1024) : "-"; }
std::string Shown(const platform::Reading<std::string>& reading) {
  if (!reading.ok()) return Errno(reading.error);
  std::string shown;
  for (const char c : reading.value) shown += c ? std::string(1, c) : "\\0";
  return shown;
}

// "meminfo": MemFree, MemAvailable and Unevictable, then free, inactive and
// wired pages of 4 KiB. "status <pid>": resident size and footprint. "survey":
// CPU name | DMI product name | device-tree model | power-supply types.
std::string Read(const std::string& tree, const std::string& reading) {
  const std::string path = VEMORA_FIXTURES "/machines/" + tree;
  const char* root = path.c_str();
  if (reading == "meminfo") {
    const auto meminfo = files::ReadMeminfo(root);
    if (!meminfo.ok()) return Errno(meminfo.error);
    const files::Meminfo& m = meminfo.value;
    const auto pages = files::PageCountsFromMeminfo(m, 4096);
    const platform::VmPageCounts& p = pages.value;
    return Kib(m.free_bytes) + " " + Kib(m.available_bytes) + " " + Kib(m.unevictable_bytes) +
           " kB, pages " +
           (pages.ok() ? std::to_string(p.free_count) + "/" + std::to_string(p.inactive_count) +
                             "/" + std::to_string(p.wire_count)
                       : Errno(pages.error));
  }
  if (reading.rfind("status ", 0) == 0) {
    const auto usage = files::ReadProcessMemory(root, std::stoi(reading.substr(7)));
    if (!usage.ok()) return Errno(usage.error);
    return Kib(usage.value.resident_bytes) + " " + Kib(usage.value.footprint_bytes) + " kB";
  }
  std::string shown =
      Shown(files::ReadCpuinfoModelName(root)) + " | " + Shown(files::ReadDmiProductName(root)) +
      " | " +
      (files::HasDeviceTree(root) ? Shown(files::ReadDeviceTreeModel(root)) : "no device tree") +
      " | ";
  const auto types = files::ReadPowerSourceTypes(root);
  if (!types.ok()) return shown + Errno(types.error);
  for (const auto& type : types.value) shown += type.value_or("?") + ",";
  return shown;
}

struct TreeRow {
  const char* tree;
  const char* reading;
  const char* expected;
};
class MachineTree : public ::testing::TestWithParam<TreeRow> {};

TEST_P(MachineTree, Reads) {
  EXPECT_EQ(Read(GetParam().tree, GetParam().reading), GetParam().expected);
}

// clang-format off
const TreeRow kTrees[] = {
    // MemAvailable is below MemFree on this idle VM: free pages stop at it.
    {"debian12-x86_64-vm", "meminfo", "24488680 24414276 10324 kB, pages 6103569/0/2581"},
    {"debian12-x86_64-vm", "status 4242", "2280 156 kB"},
    {"debian12-x86_64-vm", "status 2", "0 0 kB"},  // a kernel thread
    {"debian12-x86_64-vm", "status 1", "ENOENT"},
    {"debian12-x86_64-vm", "status 0", "ESRCH"},
    {"debian12-x86_64-vm", "survey", "AMD EPYC | ENOENT | no device tree | "},
    {"laptop-x86_64-handmade", "survey", "ENOENT | XPS 13 9310 | no device tree | Mains,InternalBattery,Battery,?,USB,"},
    {"raspberrypi4-arm64-handmade", "survey", "BCM2835 | ENOENT | Raspberry Pi 4 Model B Rev 1.4\\0 | ENOENT"},
    {"missing-proc-files", "meminfo", "ENOENT"},
    {"missing-proc-files", "status 4242", "ENOENT"},
    {"truncated-proc-files", "meminfo", "24488680 24414276 - kB, pages ENODATA"},
    {"truncated-proc-files", "status 4242", "2280 0 kB"},
    {"unreadable-proc-files", "meminfo", "EISDIR"},
    {"unreadable-proc-files", "status 4242", "EISDIR"},
    {"oversized-proc-files", "meminfo", "24488680 24414276 10324 kB, pages 6103569/0/2581"},
    {"oversized-proc-files", "status 4242", "2280 156 kB"},  // past a Groups line longer than the buffer
    {"available-below-free", "meminfo", "65536 0 10324 kB, pages 0/0/2581"},
    // 2^32 free pages, one more than a counter holds; RssAnon + VmSwap of 2^64 - 1024 bytes.
    {"huge-values", "meminfo", "17179869184 17179869188 0 kB, pages EOVERFLOW"},
    {"huge-values", "status 4242", "18014398509481983 18014398509481983 kB"},
    {"values-past-64-bits", "meminfo", "24488680 - 10324 kB, pages ENODATA"},
    {"values-past-64-bits", "status 4242", "EOVERFLOW"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Trees, MachineTree, ::testing::ValuesIn(kTrees), [](const auto& row) {
  std::string name = std::string(row.param.tree) + "_" + row.param.reading;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

// ---- Survey decoders and objects -----------------------------------------------------------

TEST(SurveyDecoders, CpuAndPowerSupplyTexts) {
  constexpr std::uint32_t kOsxsave = 1u << 27, kAvx2 = 1u << 5;
  EXPECT_TRUE(text::Avx2Usable(kOsxsave, kAvx2, 0x7));
  EXPECT_TRUE(text::Avx2Usable(kOsxsave, kAvx2 | 1, 0xE7));  // AVX-512 state too
  EXPECT_FALSE(text::Avx2Usable(0, kAvx2, 0x7));             // the OS did not turn on XSAVE
  EXPECT_FALSE(text::Avx2Usable(kOsxsave, ~kAvx2, 0x7));
  EXPECT_FALSE(text::Avx2Usable(kOsxsave, kAvx2, 0x3));  // SSE state only
  EXPECT_FALSE(text::Avx2Usable(kOsxsave, kAvx2, 0x4));  // YMM state only
  const std::pair<const char*, std::int32_t> machines[] = {
      // clang-format off
      {"x86_64", 0x01000007}, {"aarch64", 0x0100000C}, {"arm64", 0x0100000C}, {"i686", 7}, {"armv7l", 12},
      {"riscv64", -1}, {"i86", -1},
      // clang-format on
  };
  for (const auto& [machine, type] : machines)
    EXPECT_EQ(text::MachCpuType(machine), type) << machine;
  EXPECT_EQ(text::TrimBrandString(std::string("  Intel(R) Xeon(R) CPU  \0\0\0", 27)),
            "Intel(R) Xeon(R) CPU");
  EXPECT_EQ(text::TrimBrandString(std::string("AMD EPYC\0 junk", 14)), "AMD EPYC");
  EXPECT_EQ(text::CpuinfoModelName("processor\t: 0\nmodel name\t:\n"), std::nullopt);
  EXPECT_EQ(text::PowerSourceType("Battery", "System"), "InternalBattery");
}

TEST(LinuxObjects, StringsConvertOnlyIntoBuffersThatHoldThem) {
  const platform::Object battery = platform::cf_string_create("InternalBattery");
  const platform::Object same = platform::cf_string_create("InternalBattery");
  const platform::Object other = platform::cf_string_create("Mains");
  EXPECT_EQ(platform::cf_kind(battery), platform::CfKind::kString);
  EXPECT_TRUE(platform::cf_string_equal(battery, same));
  EXPECT_FALSE(platform::cf_string_equal(battery, other));
  const long size = platform::cf_string_max_utf8_size(platform::cf_string_length(battery));
  std::vector<char> buffer(static_cast<std::size_t>(size) + 1, 'x');
  EXPECT_FALSE(platform::cf_string_to_utf8(battery, buffer.data(), size));
  ASSERT_TRUE(platform::cf_string_to_utf8(battery, buffer.data(), size + 1));
  EXPECT_STREQ(buffer.data(), "InternalBattery");
  for (const platform::Object object : {battery, same, other}) platform::cf_release(object);
}

}  // namespace
