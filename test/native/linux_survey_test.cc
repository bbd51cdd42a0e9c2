// The Linux survey readings: the decoders of cpuid, uname and power-supply
// attributes, the readers on whole machine trees, and the CF-like objects.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace {

namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;
namespace platform = vemora::platform;

TEST(SurveyDecoders, BrandStringIsTrimmedAtItsNul) {
  EXPECT_EQ(text::TrimBrandString(std::string("  Intel(R) Xeon(R) CPU  \0\0\0", 27)),
            "Intel(R) Xeon(R) CPU");
  EXPECT_EQ(text::TrimBrandString(std::string("AMD EPYC\0 trailing junk", 23)), "AMD EPYC");
  EXPECT_EQ(text::TrimBrandString(std::string(48, '\0')), "");
}

TEST(SurveyDecoders, Avx2NeedsTheCpuAndTheOs) {
  constexpr std::uint32_t kOsxsave = 1u << 27, kAvx2 = 1u << 5;
  struct Row {
    const char* name;
    std::uint32_t ecx, ebx;
    std::uint64_t xcr0;
    bool usable;
  };
  const Row rows[] = {
      {"cpu_and_os", kOsxsave, kAvx2, 0x7, true},
      {"avx512_state_too", kOsxsave, kAvx2 | 1, 0xE7, true},
      {"os_without_osxsave", 0, kAvx2, 0x7, false},
      {"cpu_without_avx2", kOsxsave, ~kAvx2, 0x7, false},
      {"os_saves_sse_only", kOsxsave, kAvx2, 0x3, false},
      {"os_saves_ymm_only", kOsxsave, kAvx2, 0x4, false},
  };
  for (const Row& row : rows)
    EXPECT_EQ(text::Avx2Usable(row.ecx, row.ebx, row.xcr0), row.usable) << row.name;
}

TEST(SurveyDecoders, MachCpuTypeOfUnameMachine) {
  const std::pair<const char*, std::int32_t> rows[] = {
      {"x86_64", 0x01000007}, {"aarch64", 0x0100000C}, {"arm64", 0x0100000C}, {"i686", 7},
      {"armv7l", 12},         {"riscv64", -1},         {"i86", -1},           {"", -1},
  };
  for (const auto& [machine, type] : rows) EXPECT_EQ(text::MachCpuType(machine), type) << machine;
}

TEST(SurveyDecoders, OnlyTheMachinesOwnBatteryIsInternal) {
  EXPECT_EQ(text::PowerSourceType("Battery", ""), "InternalBattery");
  EXPECT_EQ(text::PowerSourceType("Battery", "System"), "InternalBattery");
  EXPECT_EQ(text::PowerSourceType("Battery", "Device"), "Battery");
  EXPECT_EQ(text::PowerSourceType("Mains", ""), "Mains");
  EXPECT_EQ(text::PowerSourceType("battery", ""), "battery");
}

// ---- Whole machine trees ------------------------------------------------------------

using Types = std::vector<std::optional<std::string>>;
struct MachineRow {
  std::string name;
  platform::Reading<std::string> cpuinfo_name;
  platform::Reading<std::string> dmi_name;
  platform::Reading<std::string> device_tree_model;  // ENOENT also means no device tree
  platform::Reading<Types> power_sources;
};
void PrintTo(const MachineRow& row, std::ostream* out) { *out << row.name; }
class MachineTree : public ::testing::TestWithParam<MachineRow> {};

template <typename T>
void ExpectReading(const platform::Reading<T>& actual, const platform::Reading<T>& expected) {
  EXPECT_EQ(actual.error, expected.error);
  if (expected.ok()) {
    EXPECT_EQ(actual.value, expected.value);
  }
}

TEST_P(MachineTree, ReadsItsModelCpuAndPowerSupplies) {
  const MachineRow& row = GetParam();
  const std::string root = std::string(VEMORA_FIXTURES "/machines/") + row.name;
  ExpectReading(files::ReadCpuinfoModelName(root.c_str()), row.cpuinfo_name);
  ExpectReading(files::ReadDmiProductName(root.c_str()), row.dmi_name);
  EXPECT_EQ(files::HasDeviceTree(root.c_str()), row.device_tree_model.ok());
  ExpectReading(files::ReadDeviceTreeModel(root.c_str()), row.device_tree_model);
  ExpectReading(files::ReadPowerSourceTypes(root.c_str()), row.power_sources);
}

INSTANTIATE_TEST_SUITE_P(
    Machines, MachineTree,
    ::testing::Values(
        MachineRow{"debian12-x86_64-vm", platform::Value<std::string>("AMD EPYC"),
                   platform::Failure<std::string>(ENOENT), platform::Failure<std::string>(ENOENT),
                   platform::Value(Types{})},
        MachineRow{
            "laptop-x86_64-handmade", platform::Failure<std::string>(ENOENT),
            platform::Value<std::string>("XPS 13 9310"), platform::Failure<std::string>(ENOENT),
            platform::Value(Types{"Mains", "InternalBattery", "Battery", std::nullopt, "USB"})},
        MachineRow{"raspberrypi4-arm64-handmade", platform::Value<std::string>("BCM2835"),
                   platform::Failure<std::string>(ENOENT),
                   platform::Value(std::string("Raspberry Pi 4 Model B Rev 1.4\0", 31)),
                   platform::Failure<Types>(ENOENT)}),
    [](const auto& row) {
      std::string name = row.param.name;
      for (char& c : name) c = (c == '-') ? '_' : c;
      return name;
    });

// ---- The CF-like objects of the Linux platform, on this machine --------------------------

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
