// The CPU, GPU and whole-hardware surveys, the names JavaScript sees, and the
// kind of machine, on the scripted platform: an M2 Max laptop ("Mac14,6", an
// internal battery) with Apple GPU families 1 to 8 and macOS 14.5.
#include <algorithm>
#include <map>
#include <tuple>

#include "platform_test.h"
#include "system/device_type.h"
#include "system/hardware_survey.h"

namespace {

using namespace std::string_literals;
using namespace vemora::platform;
using namespace vemora::system;
using Arch = CpuArchitecture;
using Ext = CpuInstructionSetExtension;
using S = fake::Script&;

constexpr std::int32_t kX86_64 = 0x01000007, kArm64 = 0x0100000C;

template <typename E>
std::string Name(std::string (*to_str)(E), int value) {
  return to_str(static_cast<E>(value));
}

// The last name of each table; values past it, negative ones too, fall back to one name.
TEST(Names, LastInTheTableAndPastIt) {
  const std::pair<std::string, std::string> rows[] = {
      // clang-format off
      {Name(ResultCodeToStr, 8), "NotImplemented"}, {Name(ResultCodeToStr, 9), "Unknown"}, {Name(ResultCodeToStr, -1), "Unknown"},
      {Name(CpuArchitectureToStr, 3), "Unknown"}, {Name(CpuInstructionSetExtensionToStr, 2), "AdvSIMD"},
      {Name(CpuInstructionSetExtensionToStr, 3), "Unknown"}, {Name(GpuIntegrationTypeToStr, 3), "Unknown"},
      {Name(GpuDetectionPlatformToStr, 7), "OpenVINO"}, {Name(GpuDetectionPlatformToStr, 8), "Unknown"},
      {Name(DeviceTypeToStr, 3), "MacStudio"}, {Name(DeviceTypeToStr, 4), "Other"}, {CpuInstructionSetExtensionsToStr({}), ""},
      // clang-format on
  };
  for (const auto& [actual, expected] : rows) EXPECT_EQ(actual, expected);
  const std::string two = CpuInstructionSetExtensionsToStr({Ext::AVX, Ext::AVX2});
  EXPECT_TRUE(two == "AVX, AVX2" || two == "AVX2, AVX") << two;
}

struct CpuRow {
  const char* name;
  Reading<std::string> brand;
  std::int32_t cpu_type, avx2;
  CpuInfo expected;
};
class CpuSurvey : public ::testing::TestWithParam<CpuRow> {};

TEST_P(CpuSurvey, FillsWhatTheKernelAnswers) {
  const CpuRow& row = GetParam();
  fake::script().brand = row.brand;
  fake::script().cpu_type = Value(row.cpu_type);
  fake::script().avx2 = Value(row.avx2);
  const CpuInfo cpu = SurveyCpu().second;
  EXPECT_EQ(std::tie(cpu.name, cpu.architecture, cpu.supportedInstructionSetExtensions),
            std::tie(row.expected.name, row.expected.architecture,
                     row.expected.supportedInstructionSetExtensions));
  // Only an x86_64 CPU is asked about AVX2.
  EXPECT_EQ(fake::count("sysctlbyname hw.optional.avx2_0"), row.cpu_type == kX86_64);
}

// clang-format off
const CpuRow kCpuRows[] = {
    {"arm64_brand_unreadable_never_asks_avx2", Failure<std::string>(2), kArm64, 1, {"", Arch::ARM64, {Ext::AdvSIMD}}},
    {"xeon_brand_stops_at_nul", Value("Xeon\0junk"s), kX86_64, 1, {"Xeon", Arch::x86_64, {Ext::AVX2}}},
    {"arm32_brand_capped_at_256", Value(std::string(300, 'x')), 12, 1, {std::string(256, 'x'), Arch::Unknown, {}}},
    {"x86_avx2_zero", Value("Xeon"s), kX86_64, 0, {"Xeon", Arch::x86_64, {}}},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, CpuSurvey, ::testing::ValuesIn(kCpuRows), ByName);

struct GpuRow {
  const char* name;
  void (*arrange)(S);
  const char* gpu_name;
  std::map<std::string, std::string> other_info;
  long family_probes;  // counting down from Apple 20 (1020)
  std::uint64_t total_bytes = 64ULL << 30, dedicated_bytes = 48ULL << 30;
};
class GpuSurvey : public ::testing::TestWithParam<GpuRow> {};

TEST_P(GpuSurvey, DescribesTheOneAppleGpu) {
  const GpuRow& row = GetParam();
  row.arrange(fake::script());
  GpuSurveyResult survey;
  CaptureStderr([&] { survey = SurveyGpus(); });
  ASSERT_EQ(survey.second.size(), 1u);
  const GpuInfo& gpu = survey.second[0];
  // Its id, kind and platform, the same for every Apple GPU, are the JavaScript test's.
  EXPECT_EQ(std::tie(survey.first.code, survey.first.message, gpu.name,
                     gpu.totalMemoryCapacityBytes, gpu.dedicatedMemoryCapacityBytes),
            std::make_tuple(ResultCode::Success, "Successfully queried Apple Silicon for GPU Info.",
                            row.gpu_name, row.total_bytes, row.dedicated_bytes));
  EXPECT_EQ(decltype(row.other_info)(gpu.otherInfo.begin(), gpu.otherInfo.end()), row.other_info);
  std::vector<std::string> probes;
  for (long family = 1020; family > 1020 - row.family_probes; --family)
    probes.push_back("supportsFamily " + std::to_string(family));
  EXPECT_EQ(fake::asked({"supportsFamily"}), probes);
}

std::map<std::string, std::string> Other(const char* family, const char* version) {
  std::map<std::string, std::string> info;
  if (family) info["metalGpuFamilyNumeric"] = family;
  if (version) info["osProductVersion"] = version;
  return info;
}

// clang-format off
const GpuRow kGpuRows[] = {
    {"first_yes_from_the_top_counts", [](S s) { s.supported_families = {1009, 1020}; }, "Apple M2 Max", Other("20", "14.5"), 1},
    {"no_name_family_or_version",
     [](S s) { s.metal_name.reset(); s.supported_families.clear(); s.os_version = Failure<std::string>(2); }, "Apple Silicon",
     Other(nullptr, nullptr), 20},
    // A failed figure (-1) is kept as all 64 bits set.
    {"no_device_memsize_unreadable", [](S s) { s.metal_device = false; s.physical_memory = Failure<std::uint64_t>(1); },
     "Apple Silicon", Other(nullptr, "14.5"), 0, ~0ULL, ~0ULL},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, GpuSurvey, ::testing::ValuesIn(kGpuRows), ByName);

// Memory figures first, then the Metal queries inside one autorelease pool.
TEST(GpuSurvey, AsksMemoryBeforeMetalInsideOnePool) {
  SurveyGpus();
  // clang-format off
  const std::vector<std::string> order = {"sysctlbyname hw.cputype", "sysctl_hw_memsize", "recommendedMaxWorkingSetSize",
      "objc_autoreleasePoolPush", "name", "sysctlbyname kern.osproductversion", "objc_autoreleasePoolPop"};
  // clang-format on
  EXPECT_EQ(fake::asked(order), order);
}

// The GPU half first: off 64-bit ARM it asks nothing but the CPU type. Each
// half keeps its own status, and its payload only beside a success.
TEST(HardwareSurvey, KeepsEachHalfApart) {
  fake::script().cpu_type = Value(kX86_64);
  const auto [gpus, cpu] = SurveyHardware();
  EXPECT_EQ(std::tie(gpus.first.code, gpus.first.message, cpu.first.code, cpu.second.name),
            std::make_tuple(ResultCode::NoDevicesFound,
                            "Error trying to query Apple gpus: No Apple GPUs found or not an "
                            "Apple ARM64 platform.",
                            ResultCode::Success, "Apple M2 Max"));
  EXPECT_TRUE(gpus.second.empty());
  EXPECT_EQ(fake::calls().front(), "sysctlbyname hw.cputype");
  EXPECT_EQ(fake::calls().at(1), "sysctlbyname machdep.cpu.brand_string");
  fake::script().cpu_type = Value(kArm64);
  fake::script().brand_throws = true;
  const auto [arm_gpus, failed_cpu] = SurveyHardware();
  EXPECT_EQ(
      std::make_tuple(arm_gpus.second.size(), failed_cpu.first.code, failed_cpu.first.message),
      std::make_tuple(1u, ResultCode::Error, "fake CPU query failed"));
}

// ---- Kind of machine: each rule (on "hw.model"), with and without a battery ----------------

constexpr DeviceType kLaptop = DeviceType::Laptop, kDesktop = DeviceType::Desktop,
                     kMini = DeviceType::MacMini, kStudio = DeviceType::MacStudio,
                     kOther = DeviceType::Other;

struct RuleRow {
  std::optional<std::string> model;  // unset: no source has one
  DeviceType without_battery;
  bool battery_decides;  // and with one the machine is a Laptop
};
class Classification : public ::testing::TestWithParam<std::tuple<RuleRow, bool>> {};

TEST_P(Classification, FollowsTheRulesInOrder) {
  const auto& [row, battery] = GetParam();
  fake::script().hw_model = row.model ? Value(*row.model + '\0') : Failure<std::string>(2);
  if (!battery) fake::script().power_sources.clear();
  EXPECT_EQ(GetDeviceType(), battery && row.battery_decides ? kLaptop : row.without_battery);
  EXPECT_EQ(fake::count("IOPSCopyPowerSourcesInfo"), row.battery_decides);
}

// Each prefix rule, with "Macmini" on a model not in the table; the identifier tables' first
// and last entries and a near miss; near misses of the prefixes.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Classification, ::testing::Combine(::testing::Values(
    RuleRow{"MacBook", kLaptop, false}, RuleRow{"Macmini7,1", kMini, false}, RuleRow{"MacStudio1,1", kStudio, false},
    RuleRow{"Mac14,3", kMini, false}, RuleRow{"Mac16,9", kStudio, false}, RuleRow{"Mac16,9x", kDesktop, true},
    RuleRow{"iMac21,1", kDesktop, true}, RuleRow{"Ma", kOther, true}, RuleRow{"macbookpro18,3", kOther, true},
    RuleRow{std::nullopt, kOther, true}), ::testing::Bool()),
    [](const auto& row) {
      std::string name = std::get<0>(row.param).model.value_or("no_identifier");
      std::replace(name.begin(), name.end(), ',', '_');
      return name + (std::get<1>(row.param) ? "_with_battery" : "_without_battery");
    });
// clang-format on

// ---- Where the identifier comes from (no battery, and the registry holds another model than
// "hw.model"), and the battery scan ("Mac14,6": Laptop with an internal battery, Desktop without)

using Kind = fake::ModelProperty::Kind;
using Type = fake::PowerSource::Type;
fake::ModelProperty Str(std::string text) { return {Kind::kString, std::move(text)}; }
void Ident(S s, std::optional<std::string> sysctl, fake::ModelProperty registry) {
  s.power_sources.clear();
  s.hw_model = sysctl ? Value(*sysctl) : Failure<std::string>(2);
  s.model_property = std::move(registry);
}
const fake::PowerSource kBattery{}, kUps{true, true, Type::kString, "UPS"}, kNull{false},
    kUndescribed{true, false}, kNotString{true, true, Type::kNotString};

struct DeviceRow {
  const char* name;
  void (*arrange)(S);
  DeviceType expected;
  long comparisons;  // of a power source's type with "InternalBattery"
};
class Device : public ::testing::TestWithParam<DeviceRow> {};

TEST_P(Device, TakesTheIdentifierAndScansForABattery) {
  GetParam().arrange(fake::script());
  EXPECT_EQ(GetDeviceType(), GetParam().expected);
  EXPECT_EQ(fake::count("CFStringCompare"), GetParam().comparisons);
}

// clang-format off
const DeviceRow kDeviceRows[] = {
    {"sysctl_padded_with_zeros", [](S s) { Ident(s, "Mac13,1\0\0\0"s, Str("Macmini9,1")); }, kStudio, 0},
    {"sysctl_all_zero", [](S s) { Ident(s, "\0\0\0\0"s, Str("Mac16,9")); }, kStudio, 0},
    {"sysctl_second_read_fails", [](S s) { Ident(s, "Mac13,1", Str("Macmini9,1")); s.hw_model_second_read_fails = true; }, kMini, 0},
    {"sysctl_second_read_reports_0", [](S s) { Ident(s, "Mac13,1", Str("Macmini9,1")); s.hw_model_read_length = 0; }, kMini, 0},
    {"sysctl_empty_registry_data_nuls", [](S s) { Ident(s, "", {Kind::kData, "Mac14,3\0\0"s}); }, kMini, 0},
    {"registry_string_ends_at_nul", [](S s) { Ident(s, {}, Str("Macmini9,1\0Mac13,1"s)); }, kMini, 0},
    {"registry_other_kind", [](S s) { Ident(s, {}, {Kind::kOther, "Macmini9,1"}); }, kOther, 0},
    {"registry_without_model", [](S s) { Ident(s, {}, {Kind::kAbsent, ""}); }, kOther, 0},
    {"no_platform_expert", [](S s) { Ident(s, {}, Str("Macmini9,1")); s.platform_expert_service = false; }, kOther, 0},
    {"null_and_undescribed_skipped_stops_at_first_match", [](S s) { s.power_sources = {kNull, kUndescribed, kBattery, kBattery}; },
     kLaptop, 1},
    {"type_not_string_skipped", [](S s) { s.power_sources = {kNotString, kUps}; }, kDesktop, 1},
    {"no_power_snapshot", [](S s) { s.power_info = false; }, kDesktop, 0},
    {"no_power_source_list", [](S s) { s.power_list = false; }, kDesktop, 0},
    {"comparison_string_not_created", [](S s) { s.battery_string_created = false; }, kDesktop, 0},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, Device, ::testing::ValuesIn(kDeviceRows), ByName);

}  // namespace
