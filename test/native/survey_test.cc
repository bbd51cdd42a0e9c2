// The CPU, GPU and whole-hardware surveys on the scripted platform, and the
// names JavaScript sees for every enumeration value.
#include <algorithm>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "platform_test.h"
#include "system/cpu_survey.h"
#include "system/gpu_survey.h"
#include "system/hardware_survey.h"

namespace {

using namespace vemora::system;
using vemora::platform::Failure;
using vemora::platform::Reading;
using vemora::platform::Value;
using Arch = CpuArchitecture;
using Ext = CpuInstructionSetExtension;
using Info = std::map<std::string, std::string>;

constexpr std::int32_t kX86_64 = 0x01000007, kArm64 = 0x0100000C;
constexpr std::uint64_t kGiB = 1ULL << 30;
constexpr const char* kNoAppleGpu =
    "Error trying to query Apple gpus: No Apple GPUs found or not an Apple ARM64 platform.";
constexpr const char* kGpuOk = "Successfully queried Apple Silicon for GPU Info.";

template <typename E>
std::string Name(std::string (*to_str)(E), int value) {
  return to_str(static_cast<E>(value));
}

TEST(Names, EveryValueAndTheFallbacks) {
  const std::pair<std::string, std::string> rows[] = {
      {Name(ResultCodeToStr, 0), "Unset"},
      {Name(ResultCodeToStr, 3), "NoDevicesFound"},
      {Name(ResultCodeToStr, 5), "InitializationFailed"},
      {Name(ResultCodeToStr, 8), "NotImplemented"},
      {Name(ResultCodeToStr, 9), "Unknown"},
      {Name(ResultCodeToStr, -1), "Unknown"},
      {Name(CpuArchitectureToStr, 0), "x86_64"},
      {Name(CpuArchitectureToStr, 1), "ARM64"},
      {Name(CpuArchitectureToStr, 2), "Unknown"},
      {Name(CpuInstructionSetExtensionToStr, 0), "AVX"},
      {Name(CpuInstructionSetExtensionToStr, 2), "AdvSIMD"},
      {CpuInstructionSetExtensionsToStr({}), ""},
      {CpuInstructionSetExtensionsToStr({Ext::AVX2}), "AVX2"},
      {Name(GpuIntegrationTypeToStr, 2), "Discrete"},
      {Name(GpuIntegrationTypeToStr, 3), "Unknown"},
      {Name(GpuDetectionPlatformToStr, 0), "Unknown"},
      {Name(GpuDetectionPlatformToStr, 3), "OpenCl"},
      {Name(GpuDetectionPlatformToStr, 7), "OpenVINO"},
      {Name(GpuDetectionPlatformToStr, 8), "Unknown"},
      {Name(GpuDetectionPlatformToStr, -1), "Unknown"},
      {Name(DeviceTypeToStr, 2), "MacMini"},
      {Name(DeviceTypeToStr, 3), "MacStudio"},
      {Name(DeviceTypeToStr, 4), "Other"},
      {Name(DeviceTypeToStr, -1), "Other"},
  };
  for (const auto& [actual, expected] : rows) EXPECT_EQ(actual, expected);
  const std::string two = CpuInstructionSetExtensionsToStr({Ext::AVX, Ext::AVX2});
  EXPECT_TRUE(two == "AVX, AVX2" || two == "AVX2, AVX") << two;
}

// ---- CPU ------------------------------------------------------------------------

struct CpuRow {
  const char* name;
  Reading<std::string> brand;
  Reading<std::int32_t> cpu_type;
  Reading<std::int32_t> avx2;
  CpuInfo expected;
};
void PrintTo(const CpuRow& row, std::ostream* out) { *out << row.name; }
class CpuSurvey : public PlatformTestWithParam<CpuRow> {};

TEST_P(CpuSurvey, FillsWhatTheKernelAnswers) {
  const CpuRow& row = GetParam();
  script().brand = row.brand;
  script().cpu_type = row.cpu_type;
  script().avx2 = row.avx2;
  const auto [result, cpu] = SurveyCpu();
  EXPECT_EQ(result.code, ResultCode::Success);
  EXPECT_EQ(result.message, "");
  EXPECT_EQ(cpu.name, row.expected.name);
  EXPECT_EQ(cpu.architecture, row.expected.architecture);
  EXPECT_EQ(cpu.supportedInstructionSetExtensions, row.expected.supportedInstructionSetExtensions);
  // Only an x86_64 CPU is asked about AVX2.
  const auto& calls = fake::calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "cpu_avx2_flag"),
            row.cpu_type.ok() && row.cpu_type.value == kX86_64 ? 1 : 0);
}

const Reading<std::string> kM2 = Value(std::string("Apple M2 Max\0", 13));
const auto kNone = Failure<std::int32_t>(2);
constexpr const char* kM2Name = "Apple M2 Max";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, CpuSurvey, ::testing::Values(
    CpuRow{"apple_m2_max", kM2, Value(kArm64), kNone, {kM2Name, Arch::ARM64, {Ext::AdvSIMD}}},
    CpuRow{"brand_unreadable", Failure<std::string>(2), Value(kArm64), kNone,
           {"", Arch::ARM64, {Ext::AdvSIMD}}},
    CpuRow{"brand_stops_at_nul", Value(std::string("Xeon\0junk", 9)), kNone, kNone,
           {"Xeon", Arch::Unknown, {}}},
    CpuRow{"brand_capped_at_256", Value(std::string(300, 'x')), kNone, kNone,
           {std::string(256, 'x'), Arch::Unknown, {}}},
    CpuRow{"cpu_type_unreadable", kM2, kNone, Value(1), {kM2Name, Arch::Unknown, {}}},
    CpuRow{"x86_with_avx2", kM2, Value(kX86_64), Value(1), {kM2Name, Arch::x86_64, {Ext::AVX2}}},
    CpuRow{"x86_avx2_zero", kM2, Value(kX86_64), Value(0), {kM2Name, Arch::x86_64, {}}},
    CpuRow{"x86_avx2_key_missing", kM2, Value(kX86_64), kNone, {kM2Name, Arch::x86_64, {}}},
    CpuRow{"arm64_never_asks_avx2", kM2, Value(kArm64), Value(1),
           {kM2Name, Arch::ARM64, {Ext::AdvSIMD}}},
    CpuRow{"arm32_is_unknown", kM2, Value(12), Value(1), {kM2Name, Arch::Unknown, {}}}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(PlatformTest, CpuQueryThatThrowsGivesErrorAndTheDefaultRecord) {
  script().brand_throws = true;
  const auto [result, cpu] = SurveyCpu();
  EXPECT_EQ(result.code, ResultCode::Error);
  EXPECT_EQ(result.message, "fake CPU query failed");
  EXPECT_EQ(cpu.name, "");
  EXPECT_EQ(cpu.architecture, Arch::Unknown);
  EXPECT_TRUE(cpu.supportedInstructionSetExtensions.empty());
}

// ---- GPU ----------------------------------------------------------------------------

struct GpuRow {
  const char* name;
  void (*arrange)(fake::Script&);
  std::string gpu_name;
  Info other_info;
  long last_family_probed = 1008;  // 0: no device, no probe
  std::uint64_t total_bytes = 64 * kGiB;
  std::uint64_t dedicated_bytes = 48 * kGiB;
};
void PrintTo(const GpuRow& row, std::ostream* out) { *out << row.name; }
class GpuSurvey : public PlatformTestWithParam<GpuRow> {};

TEST_P(GpuSurvey, DescribesTheOneAppleGpu) {
  const GpuRow& row = GetParam();
  row.arrange(script());
  GpuSurveyResult survey;
  CaptureStderr([&] { survey = SurveyGpus(); });
  EXPECT_EQ(survey.first.code, ResultCode::Success);
  EXPECT_EQ(survey.first.message, kGpuOk);
  ASSERT_EQ(survey.second.size(), 1u);
  const GpuInfo& gpu = survey.second[0];
  EXPECT_EQ(gpu.name, row.gpu_name);
  EXPECT_EQ(gpu.deviceId, 0);
  EXPECT_EQ(gpu.totalMemoryCapacityBytes, row.total_bytes);
  EXPECT_EQ(gpu.dedicatedMemoryCapacityBytes, row.dedicated_bytes);
  EXPECT_EQ(gpu.integrationType, GpuIntegrationType::Integrated);
  EXPECT_EQ(gpu.detectionPlatform, GpuDetectionPlatform::Metal);
  EXPECT_EQ(gpu.detectionPlatformVersion, "");
  EXPECT_EQ(Info(gpu.otherInfo.begin(), gpu.otherInfo.end()), row.other_info);

  std::vector<std::string> probes, expected_probes;
  for (const auto& call : fake::calls()) {
    if (call.rfind("metal_device_supports_family", 0) == 0) probes.push_back(call);
  }
  for (long family = 1020; row.last_family_probed != 0 && family >= row.last_family_probed;
       --family)
    expected_probes.push_back("metal_device_supports_family " + std::to_string(family));
  EXPECT_EQ(probes, expected_probes);
}

const Info kApple8 = {{"metalGpuFamilyNumeric", "8"}, {"osProductVersion", "14.5"}};

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, GpuSurvey, ::testing::Values(
    GpuRow{"m2_max_apple8", [](fake::Script&) {}, "Apple M2 Max", kApple8},
    GpuRow{"no_metal_device", [](fake::Script& s) { s.metal_device = false; }, "Apple Silicon",
           {{"osProductVersion", "14.5"}}, 0, 64 * kGiB, ~0ULL},
    GpuRow{"nil_name", [](fake::Script& s) { s.metal_name.reset(); }, "Apple Silicon", kApple8},
    GpuRow{"empty_name", [](fake::Script& s) { s.metal_name = ""; }, "", kApple8},
    GpuRow{"apple9_yes_on_the_twelfth_probe",
           [](fake::Script& s) { s.supported_families.insert(1009); }, "Apple M2 Max",
           {{"metalGpuFamilyNumeric", "9"}, {"osProductVersion", "14.5"}}, 1009},
    GpuRow{"first_yes_from_the_top_counts",
           [](fake::Script& s) { s.supported_families = {1009, 1020}; }, "Apple M2 Max",
           {{"metalGpuFamilyNumeric", "20"}, {"osProductVersion", "14.5"}}, 1020},
    GpuRow{"no_family", [](fake::Script& s) { s.supported_families.clear(); }, "Apple M2 Max",
           {{"osProductVersion", "14.5"}}, 1001},
    GpuRow{"os_version_unreadable",
           [](fake::Script& s) { s.os_version = Failure<std::string>(12); }, "Apple M2 Max",
           {{"metalGpuFamilyNumeric", "8"}}},
    GpuRow{"os_version_empty", [](fake::Script& s) { s.os_version = Value(std::string(1, '\0')); },
           "Apple M2 Max", {{"metalGpuFamilyNumeric", "8"}, {"osProductVersion", ""}}},
    GpuRow{"memsize_unreadable_kept_as_all_bits",
           [](fake::Script& s) { s.physical_memory = Failure<std::uint64_t>(1); }, "Apple M2 Max",
           kApple8, 1008, ~0ULL}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(PlatformTest, GpuSurveyOffArm64FindsNothingAndAsksNothingMore) {
  for (const auto cpu_type : {Value(kX86_64), Failure<std::int32_t>(2)}) {
    fake::reset();
    script().gpu_host_cpu_type = cpu_type;
    const auto [result, gpus] = SurveyGpus();
    EXPECT_EQ(result.code, ResultCode::NoDevicesFound);
    EXPECT_EQ(result.message, kNoAppleGpu);
    EXPECT_TRUE(gpus.empty());
    EXPECT_EQ(fake::calls(), std::vector<std::string>{"gpu_host_cpu_type"});
  }
}

TEST_F(PlatformTest, GpuSurveyAsksMemoryBeforeMetalInsideOnePool) {
  SurveyGpus();
  const auto& calls = fake::calls();
  const auto at = [&](const char* name) {
    return std::find(calls.begin(), calls.end(), name) - calls.begin();
  };
  EXPECT_EQ(at("gpu_host_cpu_type"), 0);
  EXPECT_LT(at("physical_memory_bytes"), at("metal_recommended_working_set_bytes"));
  EXPECT_LT(at("metal_recommended_working_set_bytes"), at("autorelease_pool_push"));
  EXPECT_LT(at("autorelease_pool_push"), at("metal_device_name"));
  EXPECT_LT(at("metal_device_name"), at("os_product_version"));
  EXPECT_EQ(calls.back(), "autorelease_pool_pop");
}

// ---- Whole hardware: each half keeps its own status, and no payload beside a failure ----

TEST_F(PlatformTest, HardwareSurveyKeepsEachHalfApart) {
  const HardwareSurveyResult both = SurveyHardware();
  EXPECT_EQ(both.gpuSurveyResult.first.message, kGpuOk);
  EXPECT_EQ(both.gpuSurveyResult.second.size(), 1u);
  EXPECT_EQ(both.cpuSurveyResult.first.code, ResultCode::Success);
  EXPECT_EQ(both.cpuSurveyResult.second.name, "Apple M2 Max");
  const auto& calls = fake::calls();
  EXPECT_LT(std::find(calls.begin(), calls.end(), "gpu_host_cpu_type"),
            std::find(calls.begin(), calls.end(), "cpu_brand_string"));
  EXPECT_TRUE(fake::live_objects().empty());

  fake::reset();
  script().gpu_host_cpu_type = Value(kX86_64);
  script().brand_throws = true;
  const HardwareSurveyResult neither = SurveyHardware();
  EXPECT_EQ(neither.gpuSurveyResult.first.code, ResultCode::NoDevicesFound);
  EXPECT_EQ(neither.gpuSurveyResult.first.message, kNoAppleGpu);
  EXPECT_TRUE(neither.gpuSurveyResult.second.empty());
  EXPECT_EQ(neither.cpuSurveyResult.first.code, ResultCode::Error);
  EXPECT_EQ(neither.cpuSurveyResult.first.message, "fake CPU query failed");
  EXPECT_EQ(neither.cpuSurveyResult.second.name, "");
  EXPECT_EQ(neither.cpuSurveyResult.second.architecture, Arch::Unknown);
  EXPECT_TRUE(neither.cpuSurveyResult.second.supportedInstructionSetExtensions.empty());
}

}  // namespace
