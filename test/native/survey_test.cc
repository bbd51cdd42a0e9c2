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

using namespace vemora::system;
using vemora::platform::Failure;
using vemora::platform::Reading;
using vemora::platform::Value;
using Arch = CpuArchitecture;
using Ext = CpuInstructionSetExtension;
using S = fake::Script&;

constexpr std::int32_t kX86_64 = 0x01000007, kArm64 = 0x0100000C;

void Keep(S) {}
template <typename E>
std::string Name(std::string (*to_str)(E), int value) {
  return to_str(static_cast<E>(value));
}

// Values past each table, negative ones too, fall back to one name.
TEST(Names, LastInTheTableAndPastIt) {
  const std::pair<std::string, std::string> rows[] = {
      // clang-format off
      {Name(ResultCodeToStr, 8), "NotImplemented"}, {Name(ResultCodeToStr, 9), "Unknown"}, {Name(ResultCodeToStr, -1), "Unknown"},
      {Name(CpuArchitectureToStr, 3), "Unknown"}, {Name(CpuInstructionSetExtensionToStr, 2), "AdvSIMD"},
      {Name(CpuInstructionSetExtensionToStr, 3), "Unknown"}, {Name(GpuIntegrationTypeToStr, 3), "Unknown"},
      {Name(GpuDetectionPlatformToStr, 7), "OpenVINO"}, {Name(GpuDetectionPlatformToStr, 8), "Unknown"},
      {Name(DeviceTypeToStr, 3), "MacStudio"}, {Name(DeviceTypeToStr, 4), "Other"}, {Name(DeviceTypeToStr, -1), "Other"},
      {CpuInstructionSetExtensionsToStr({}), ""}, {CpuInstructionSetExtensionsToStr({Ext::AVX2}), "AVX2"},
      // clang-format on
  };
  for (const auto& [actual, expected] : rows) EXPECT_EQ(actual, expected);
  const std::string two = CpuInstructionSetExtensionsToStr({Ext::AVX, Ext::AVX2});
  EXPECT_TRUE(two == "AVX, AVX2" || two == "AVX2, AVX") << two;
}

struct CpuRow {
  const char* name;
  Reading<std::string> brand;
  Reading<std::int32_t> cpu_type, avx2;
  CpuInfo expected;
};
class CpuSurvey : public ::testing::TestWithParam<CpuRow> {};

TEST_P(CpuSurvey, FillsWhatTheKernelAnswers) {
  const CpuRow& row = GetParam();
  std::tie(fake::script().brand, fake::script().cpu_type, fake::script().avx2) =
      std::tie(row.brand, row.cpu_type, row.avx2);
  const auto [result, cpu] = SurveyCpu();
  EXPECT_EQ(std::tie(result.code, result.message), std::make_tuple(ResultCode::Success, ""));
  EXPECT_EQ(std::tie(cpu.name, cpu.architecture, cpu.supportedInstructionSetExtensions),
            std::tie(row.expected.name, row.expected.architecture,
                     row.expected.supportedInstructionSetExtensions));
  // Only an x86_64 CPU is asked about AVX2.
  EXPECT_EQ(Count("sysctlbyname hw.optional.avx2_0"),
            row.cpu_type.ok() && row.cpu_type.value == kX86_64);
}

const Reading<std::string> kM2 = Value(std::string("Apple M2 Max\0", 13));
const auto kNone = Failure<std::int32_t>(2);
constexpr const char* kM2Name = "Apple M2 Max";

// clang-format off
const CpuRow kCpuRows[] = {
    {"m2_max_never_asks_avx2", kM2, Value(kArm64), Value(1), {kM2Name, Arch::ARM64, {Ext::AdvSIMD}}},
    {"brand_unreadable", Failure<std::string>(2), Value(kArm64), kNone, {"", Arch::ARM64, {Ext::AdvSIMD}}},
    {"xeon_brand_stops_at_nul", Value(std::string("Xeon\0junk", 9)), Value(kX86_64), Value(1), {"Xeon", Arch::x86_64, {Ext::AVX2}}},
    {"arm32_brand_capped_at_256", Value(std::string(300, 'x')), Value(12), Value(1), {std::string(256, 'x'), Arch::Unknown, {}}},
    {"cpu_type_unreadable", kM2, kNone, Value(1), {kM2Name, Arch::Unknown, {}}},
    {"x86_avx2_zero", kM2, Value(kX86_64), Value(0), {kM2Name, Arch::x86_64, {}}},
    {"x86_avx2_key_missing", kM2, Value(kX86_64), kNone, {kM2Name, Arch::x86_64, {}}},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, CpuSurvey, ::testing::ValuesIn(kCpuRows), ByName);

struct GpuRow {
  const char* name;
  void (*arrange)(S);
  const char* gpu_name;
  std::map<std::string, std::string> other_info;
  long lowest_family_probed;  // counting down from 1020; 0: no device, no probe
  std::uint64_t total_bytes = 64ULL << 30, dedicated_bytes = 48ULL << 30;
};
class GpuSurvey : public ::testing::TestWithParam<GpuRow> {};

TEST_P(GpuSurvey, DescribesTheOneAppleGpu) {
  const GpuRow& row = GetParam();
  row.arrange(fake::script());
  GpuSurveyResult survey;
  CaptureStderr([&] { survey = SurveyGpus(); });
  EXPECT_EQ(
      std::tie(survey.first.code, survey.first.message),
      std::make_tuple(ResultCode::Success, "Successfully queried Apple Silicon for GPU Info."));
  ASSERT_EQ(survey.second.size(), 1u);
  const GpuInfo& gpu = survey.second[0];
  EXPECT_EQ(std::tie(gpu.name, gpu.totalMemoryCapacityBytes, gpu.dedicatedMemoryCapacityBytes),
            std::tie(row.gpu_name, row.total_bytes, row.dedicated_bytes));
  EXPECT_EQ(std::tie(gpu.deviceId, gpu.integrationType, gpu.detectionPlatform,
                     gpu.detectionPlatformVersion),
            std::make_tuple(0, GpuIntegrationType::Integrated, GpuDetectionPlatform::Metal, ""));
  EXPECT_EQ(decltype(row.other_info)(gpu.otherInfo.begin(), gpu.otherInfo.end()), row.other_info);
  std::vector<std::string> probes, expected;
  for (const std::string& call : fake::calls())
    if (call.rfind("supportsFamily", 0) == 0) probes.push_back(call);
  for (long family = 1020; row.lowest_family_probed && family >= row.lowest_family_probed; --family)
    expected.push_back("supportsFamily " + std::to_string(family));
  EXPECT_EQ(probes, expected);
}

std::map<std::string, std::string> Other(const char* family, const char* version) {
  std::map<std::string, std::string> info;
  if (family) info["metalGpuFamilyNumeric"] = family;
  if (version) info["osProductVersion"] = version;
  return info;
}

// clang-format off
const GpuRow kGpuRows[] = {
    {"m2_max_apple8", Keep, "Apple M2 Max", Other("8", "14.5"), 1008},
    {"first_yes_from_the_top_counts", [](S s) { s.supported_families = {1009, 1020}; }, "Apple M2 Max", Other("20", "14.5"), 1020},
    {"no_family_no_version", [](S s) { s.supported_families.clear(); s.os_version = Failure<std::string>(2); }, "Apple M2 Max",
     Other(nullptr, nullptr), 1001},
    {"os_version_empty", [](S s) { s.os_version = Value(std::string(1, '\0')); }, "Apple M2 Max", Other("8", ""), 1008},
    {"nil_name", [](S s) { s.metal_name.reset(); }, "Apple Silicon", Other("8", "14.5"), 1008},
    {"empty_name", [](S s) { s.metal_name = ""; }, "", Other("8", "14.5"), 1008},
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
  EXPECT_EQ(Asked(order), order);
}

// The GPU half first. Off 64-bit ARM it asks nothing but the CPU type, and
// each half keeps its own status, with no payload beside a failure.
TEST(HardwareSurvey, KeepsEachHalfApart) {
  const HardwareSurveyResult both = SurveyHardware();
  EXPECT_EQ(both.gpuSurveyResult.second.size(), 1u);
  EXPECT_EQ(both.cpuSurveyResult.second.name, "Apple M2 Max");
  EXPECT_EQ(fake::calls().front(), "sysctlbyname hw.cputype");
  for (const auto cpu_type : {Value(kX86_64), Failure<std::int32_t>(2)}) {
    fake::reset();
    fake::script().cpu_type = cpu_type;
    fake::script().brand_throws = true;
    const auto [gpus, cpu] = SurveyHardware();
    EXPECT_EQ(std::tie(gpus.first.code, gpus.first.message),
              std::make_tuple(ResultCode::NoDevicesFound,
                              "Error trying to query Apple gpus: No Apple GPUs found or not an "
                              "Apple ARM64 platform."));
    EXPECT_TRUE(gpus.second.empty() && cpu.second.supportedInstructionSetExtensions.empty());
    EXPECT_EQ(fake::calls().at(1), "sysctlbyname machdep.cpu.brand_string");
    EXPECT_EQ(std::tie(cpu.first.code, cpu.first.message, cpu.second.name, cpu.second.architecture),
              std::make_tuple(ResultCode::Error, "fake CPU query failed", "", Arch::Unknown));
  }
}

// ---- Kind of machine: each rule (on "hw.model"), with and without a battery ----------------

constexpr DeviceType kLaptop = DeviceType::Laptop, kDesktop = DeviceType::Desktop,
                     kMini = DeviceType::MacMini, kStudio = DeviceType::MacStudio,
                     kOther = DeviceType::Other;

struct RuleRow {
  std::optional<std::string> model;  // unset: no source has one
  DeviceType with_battery, without_battery;
  bool asks_battery;
};
RuleRow Decides(const char* model, DeviceType type) { return {model, type, type, false}; }
RuleRow ByBattery(std::optional<std::string> model, DeviceType without) {
  return {std::move(model), kLaptop, without, true};
}
class Classification : public ::testing::TestWithParam<std::tuple<RuleRow, bool>> {};

TEST_P(Classification, FollowsTheRulesInOrder) {
  const auto& [row, battery] = GetParam();
  fake::script().hw_model = row.model ? Value(*row.model + '\0') : Failure<std::string>(2);
  if (!battery) fake::script().power_sources.clear();
  EXPECT_EQ(GetDeviceType(), battery ? row.with_battery : row.without_battery);
  EXPECT_EQ(Count("IOPSCopyPowerSourcesInfo"), row.asks_battery);
}

// The identifier tables' first and last entries; the rules' prefixes and near misses.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Classification, ::testing::Combine(::testing::Values(
    Decides("MacBookPro18,3", kLaptop), Decides("MacBook", kLaptop), Decides("Macmini9,1", kMini),
    Decides("MacStudio1,1", kStudio), Decides("Mac14,3", kMini), Decides("Mac16,11", kMini),
    Decides("Mac13,1", kStudio), Decides("Mac16,9", kStudio),
    ByBattery("Mac16,9x", kDesktop), ByBattery("Mac", kDesktop), ByBattery("iMac21,1", kDesktop),
    ByBattery("Ma", kOther), ByBattery("macbookpro18,3", kOther), ByBattery("ThinkPad", kOther),
    ByBattery(std::nullopt, kOther)), ::testing::Bool()),
    [](const auto& row) {
      std::string name = std::get<0>(row.param).model.value_or("no_identifier");
      std::replace(name.begin(), name.end(), ',', '_');
      return name + (std::get<1>(row.param) ? "_with_battery" : "_without_battery");
    });
// clang-format on

// ---- Where the identifier comes from (no battery: the identifier alone decides, and the
// registry holds another model than "hw.model" wherever both have one), and the battery scan
// ("Mac14,6": Laptop with an internal battery, Desktop without) ------------------------------

using Kind = fake::ModelProperty::Kind;
using Type = fake::PowerSource::Type;
template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);  // keeps embedded and trailing NULs
}
fake::ModelProperty Str(std::string text, bool unconvertible = false) {
  return {Kind::kString, std::move(text), unconvertible};
}
fake::ModelProperty Data(std::string bytes) { return {Kind::kData, std::move(bytes)}; }
void Ident(S s, std::optional<std::string> sysctl, fake::ModelProperty registry) {
  s.power_sources.clear();
  s.hw_model = sysctl ? Value(*sysctl) : Failure<std::string>(2);
  s.model_property = std::move(registry);
}
fake::PowerSource Source(Type kind, std::string type = "InternalBattery", bool present = true,
                         bool described = true) {
  return fake::PowerSource{present, described, kind, std::move(type)};
}
const fake::PowerSource kBattery = Source(Type::kString), kUps = Source(Type::kString, "UPS"),
                        kNull = Source(Type::kString, "", false),
                        kUndescribed = Source(Type::kString, "InternalBattery", true, false);

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
  EXPECT_EQ(Count("CFStringCompare"), GetParam().comparisons);
}

// clang-format off
const DeviceRow kDeviceRows[] = {
    {"sysctl_padded_with_zeros", [](S s) { Ident(s, Bytes("Mac13,1\0\0\0"), Str("Macmini9,1")); }, kStudio, 0},
    {"sysctl_all_zero", [](S s) { Ident(s, Bytes("\0\0\0\0"), Str("Mac16,9")); }, kStudio, 0},
    {"sysctl_second_read_fails",
     [](S s) { Ident(s, "Mac13,1", Str("Macmini9,1")); s.hw_model_second_read_fails = true; }, kMini, 0},
    {"sysctl_second_read_reports_0",
     [](S s) { Ident(s, "Mac13,1", Str("Macmini9,1")); s.hw_model_read_length = 0; }, kMini, 0},
    {"sysctl_fails_registry_string", [](S s) { Ident(s, {}, Str("Macmini9,1")); }, kMini, 0},
    {"sysctl_empty_registry_data_nuls", [](S s) { Ident(s, "", Data(Bytes("Mac14,3\0\0"))); }, kMini, 0},
    {"registry_string_ends_at_nul", [](S s) { Ident(s, {}, Str(Bytes("Macmini9,1\0Mac13,1"))); }, kMini, 0},
    {"registry_string_empty", [](S s) { Ident(s, {}, Str("")); }, kOther, 0},
    {"registry_string_unconvertible", [](S s) { Ident(s, {}, Str("Macmini9,1", true)); }, kOther, 0},
    {"registry_data_empty", [](S s) { Ident(s, {}, Data("")); }, kOther, 0},
    {"registry_data_all_nul", [](S s) { Ident(s, {}, Data(Bytes("\0\0\0"))); }, kOther, 0},
    {"registry_other_kind", [](S s) { Ident(s, {}, {Kind::kOther, "Macmini9,1"}); }, kOther, 0},
    {"registry_without_model", [](S s) { Ident(s, {}, {Kind::kAbsent, ""}); }, kOther, 0},
    {"no_platform_expert",
     [](S s) { Ident(s, {}, Str("Macmini9,1")); s.platform_expert_service = false; }, kOther, 0},
    {"battery_scan_stops_at_first_match", [](S s) { s.power_sources = {kBattery, kBattery}; }, kLaptop, 1},
    {"null_source_skipped", [](S s) { s.power_sources = {kNull, kBattery}; }, kLaptop, 1},
    {"no_description_skipped", [](S s) { s.power_sources = {kUndescribed, kBattery}; }, kLaptop, 1},
    {"type_missing_skipped", [](S s) { s.power_sources = {Source(Type::kMissing), kBattery}; }, kLaptop, 1},
    {"type_not_string_skipped", [](S s) { s.power_sources = {Source(Type::kNotString), kUps}; }, kDesktop, 1},
    {"no_power_snapshot", [](S s) { s.power_info = false; }, kDesktop, 0},
    {"no_power_source_list", [](S s) { s.power_list = false; }, kDesktop, 0},
    {"comparison_string_not_created", [](S s) { s.battery_string_created = false; }, kDesktop, 0},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, Device, ::testing::ValuesIn(kDeviceRows), ByName);

}  // namespace
