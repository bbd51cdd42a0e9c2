// The Linux readers and parsers, on real files captured from machines and on
// hand-made broken ones.
#include "platform/linux/linux_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/proc_text.h"

namespace {

using vemora::platform::Reading;
using vemora::platform::VmPageCounts;
namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;

constexpr const char* kDebianVm = VEMORA_FIXTURES "/machines/debian12-x86_64-vm";

std::optional<std::uint64_t> Parse(const std::string& content, const char* key) {
  text::KeyedNumber wanted[] = {{key, {}}};
  text::ParseKeyedNumbers(content, wanted, 1);
  return wanted[0].value;
}

TEST(ProcText, KeyedNumbers) {
  struct Row {
    const char* name;
    std::string content;
    std::optional<std::uint64_t> expected;
  };
  const Row rows[] = {
      {"plain", "MemTotal:       24684096 kB\nMemFree: 1 kB\n", 24684096},
      {"tab_separated_no_unit", "MemTotal:\t4242\n", 4242},
      {"missing_key", "MemFree: 1 kB\n", std::nullopt},
      {"truncated_last_line", "MemFree: 1 kB\nMemTotal:   2468", 2468},
      {"cut_inside_the_key", "MemFree: 1 kB\nMemTo", std::nullopt},
      {"non_numeric", "MemTotal: lots kB\n", std::nullopt},
      {"negative", "MemTotal: -5 kB\n", std::nullopt},
      {"unknown_unit", "MemTotal: 5 MB\n", std::nullopt},
      {"largest_u64", "MemTotal: 18446744073709551615 kB\n", 18446744073709551615ULL},
      {"overflows_u64", "MemTotal: 18446744073709551616 kB\n", std::nullopt},
      {"prefix_is_another_key", "MemTotalX: 7 kB\nMemTotal: 8 kB\n", 8},
      {"blanks_around_the_key", "  MemTotal \t: 10 kB\n", 10},
      {"value_after_the_first_colon", "MemTotal: 11: kB\n", std::nullopt},
      {"crlf_line_ends", "MemTotal: 9 kB\r\n", 9},
      {"no_colon", "MemTotal 9 kB\n", std::nullopt},
      {"empty", "", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(Parse(row.content, "MemTotal"), row.expected) << row.name;
}

TEST(ProcText, CpuinfoModelName) {
  EXPECT_EQ(text::CpuinfoModelName("processor\t: 0\nmodel name\t: AMD EPYC 7B13\nflags: x\n"),
            std::optional<std::string_view>("AMD EPYC 7B13"));
  EXPECT_EQ(text::CpuinfoModelName("processor\t: 0\nmodel name\t:\n"), std::nullopt);
  EXPECT_EQ(text::CpuinfoModelName("Hardware\t: BCM2835\nModel\t: Raspberry Pi 4\n"),
            std::optional<std::string_view>("BCM2835"));
}

TEST(LinuxFiles, MeminfoOfARealMachine) {
  const auto meminfo = files::ReadMeminfo(kDebianVm);
  ASSERT_TRUE(meminfo.ok()) << meminfo.error;
  EXPECT_EQ(meminfo.value.free_bytes, 24488680ULL * 1024);
  EXPECT_EQ(meminfo.value.available_bytes, 24414276ULL * 1024);
  EXPECT_EQ(meminfo.value.unevictable_bytes, 10324ULL * 1024);
}

// The reader stops once it has every key, and never takes a number that a
// read cut short.
TEST(LinuxFiles, KeyedNumbersAreReadUntilFound) {
  char dir[] = "/tmp/vemora-keyed-XXXXXX";
  ASSERT_NE(::mkdtemp(dir), nullptr);
  const std::string filler(20000, '#');  // more than the reader holds
  struct Row {
    const char* name;
    std::string content;
    int error;
    std::optional<std::uint64_t> value;
  };
  const Row rows[] = {
      {"found_before_a_long_tail", "MemFree: 7 kB\n" + filler, 0, 7},
      {"found_after_a_long_head", filler + "\nMemFree: 7 kB\n", 0, 7},
      {"found_after_an_overlong_line", std::string(40000, 'x') + "\nMemFree: 9 kB\n", 0, 9},
      {"last_line_without_newline", "Other: 1\nMemFree: 8", 0, 8},
      {"missing_from_a_short_file", "Other: 1\n", 0, std::nullopt},
  };
  for (const Row& row : rows) {
    std::ofstream(std::string(dir) + "/file") << row.content;
    text::KeyedNumber wanted[] = {{"MemFree", {}}};
    EXPECT_EQ(files::ReadKeyedNumbers(dir, "/file", wanted, 1), row.error) << row.name;
    EXPECT_EQ(wanted[0].value, row.value) << row.name;
  }
  std::remove((std::string(dir) + "/file").c_str());
  ::rmdir(dir);

  // A pipe hands the text over in two reads, the first ending inside a number.
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "MemFree: 12", 11), 11);
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(::write(ends[1], "34 kB\n", 6), 6);
    ::close(ends[1]);
  });
  text::KeyedNumber wanted[] = {{"MemFree", {}}};
  const std::string pipe_path = "/proc/self/fd/" + std::to_string(ends[0]);
  EXPECT_EQ(files::ReadKeyedNumbers("", pipe_path.c_str(), wanted, 1), 0);
  writer.join();
  ::close(ends[0]);
  EXPECT_EQ(wanted[0].value, 1234u);
}

TEST(LinuxFiles, MissingFilesReportTheirErrno) {
  EXPECT_EQ(files::ReadMeminfo("/nonexistent-root").error, ENOENT);
  EXPECT_EQ(files::ReadProcessMemory(kDebianVm, 1).error, ENOENT);
  EXPECT_EQ(files::ReadProcessMemory(kDebianVm, 0).error, ESRCH);
}

TEST(LinuxFiles, ProcessMemoryIsResidentAndAnonymousPlusSwapped) {
  const auto usage = files::ReadProcessMemory(kDebianVm, 4242);
  ASSERT_TRUE(usage.ok()) << usage.error;
  EXPECT_EQ(usage.value.resident_bytes, 2280u * 1024);
  EXPECT_EQ(usage.value.footprint_bytes, 156u * 1024);
}

// Free + inactive + purgeable pages add up to MemAvailable, also when the
// kernel's estimate is below MemFree; unevictable memory counts as wired.
TEST(LinuxFiles, PageCountsSumToMemAvailable) {
  struct Row {
    const char* name;
    files::Meminfo meminfo;
    Reading<VmPageCounts> expected;
  };
  const Row rows[] = {
      {"available_above_free",
       {4096 * 10, 4096 * 25, 4096 * 3},
       vemora::platform::Value(VmPageCounts{10, 15, 0, 3})},
      {"available_below_free",
       {4096 * 30, 4096 * 25, 0},
       vemora::platform::Value(VmPageCounts{25, 0, 0, 0})},
      {"without_memavailable", {4096, {}, 0}, vemora::platform::Failure<VmPageCounts>(ENODATA)},
      {"more_pages_than_32_bits",
       {0, 4096ULL << 32, 0},
       vemora::platform::Failure<VmPageCounts>(EOVERFLOW)},
  };
  for (const Row& row : rows) {
    const auto counts = files::PageCountsFromMeminfo(row.meminfo, 4096);
    EXPECT_EQ(counts.error, row.expected.error) << row.name;
    EXPECT_EQ(counts.value.free_count, row.expected.value.free_count) << row.name;
    EXPECT_EQ(counts.value.inactive_count, row.expected.value.inactive_count) << row.name;
    EXPECT_EQ(counts.value.wire_count, row.expected.value.wire_count) << row.name;
  }
}

}  // namespace
