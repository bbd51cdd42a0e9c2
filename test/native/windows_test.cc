// The Windows logic on any OS: the SMBIOS parse (a table recorded under Wine
// and hand-made ones after DMTF DSP0134), the page file, the battery flag,
// UTF-16 names, and the DXGI adapters on a fake of DXGI that checks every
// object is released, turned into the survey, the report and the sums.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "dxgi/fake_dxgi.h"
#include "platform/windows/gpu_readings.h"
#include "platform/windows/windows_text.h"

namespace {

namespace text = vemora::platform::windows_text;
namespace gpu = vemora::platform::windows_gpu;
namespace fake = vemora::platform::fake_dxgi;
using vemora::platform::Failure;
using vemora::platform::Reading;
using vemora::platform::SwapUsage;
using vemora::platform::Value;
using vemora::platform::dxgi::AdapterDesc;
using Step = vemora::platform::dxgi::FactoryCreation::Step;
using namespace vemora::system;
using Name = std::optional<std::string>;

constexpr std::uint64_t kMiB = 1ull << 20, kGiB = 1ull << 30;
constexpr auto ByName = [](const auto& info) { return std::string(info.param.name); };

// ---- SMBIOS ---------------------------------------------------------------------

// A structure: its header (type, length, handle 0), the rest of its formatted
// area, then its strings.
std::string Structure(char type, const std::string& formatted, std::vector<std::string> strings) {
  std::string bytes{type, static_cast<char>(4 + formatted.size()), 0, 0};
  bytes += formatted;
  for (const std::string& s : strings) bytes += s + '\0';
  return bytes + (strings.empty() ? std::string(2, '\0') : std::string(1, '\0'));
}
// System Information (23 bytes after the header) naming its product by index.
std::string System(char product_index, std::vector<std::string> strings) {
  return Structure(1, std::string{1, product_index, 0, 0} + std::string(19, '\0'), strings);
}
// RawSMBIOSData: its header, then the structures; `length` overrides the size.
std::string Raw(const std::string& table, std::optional<std::uint32_t> length = std::nullopt) {
  const std::uint32_t n = length.value_or(static_cast<std::uint32_t>(table.size()));
  return std::string{0, 3, 4, 0} +
         std::string{char(n), char(n >> 8), char(n >> 16), char(n >> 24)} + table;
}
std::string Recorded(const char* file) {
  std::ifstream in(std::string(VEMORA_FIXTURES) + "/smbios/" + file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

const std::string kBios = Structure(0, std::string(14, '\0'), {"Apple Inc.", "1968.0.0.0.0"});
const std::string kEnd = Structure(127, "", {});
const std::vector<std::string> kMac = {"Apple Inc.", "MacBookPro16,1"};

struct SmbiosRow {
  const char* name;
  std::string raw;
  Name expected;
};
class Smbios : public ::testing::TestWithParam<SmbiosRow> {};
TEST_P(Smbios, ProductName) {
  EXPECT_EQ(text::SmbiosSystemProductName(GetParam().raw), GetParam().expected);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Smbios, ::testing::ValuesIn(std::vector<SmbiosRow>{
    {"wine_8_no_strings", Recorded("wine-8.0.bin"), std::nullopt},
    {"boot_camp_mac", Raw(kBios + System(2, kMac) + kEnd), "MacBookPro16,1"},
    {"after_a_structure_without_strings", Raw(Structure(3, "x", {}) + System(1, {" ThinkPad X1 \t"})), "ThinkPad X1"},
    {"blank_name", Raw(System(1, {"   "})), std::nullopt},
    {"index_past_the_strings", Raw(System(3, kMac)), std::nullopt},
    {"system_information_too_short", Raw(Structure(1, std::string{1}, kMac)), std::nullopt},
    {"end_of_table_first", Raw(kEnd + System(2, kMac)), std::nullopt},
    {"length_cuts_the_table", Raw(kBios + System(2, kMac), static_cast<std::uint32_t>(kBios.size() + 10)), std::nullopt},
    {"strings_unterminated", Raw(kBios + System(2, kMac).substr(0, 40)), std::nullopt},
    {"structure_past_the_end", Raw(kBios + std::string{1, 60, 0, 0}), std::nullopt},
    {"header_length_below_4", Raw(std::string{1, 2, 0, 0, 0, 0} + System(2, kMac)), std::nullopt},
    {"shorter_than_the_header", std::string(7, '\0'), std::nullopt},
}), ByName);
// clang-format on

// ---- Page file, battery, text ------------------------------------------------

TEST(WindowsText, PageFileBeyondPhysical) {
  // {total phys, avail phys, total page file, avail page file} -> {total, used}
  const std::pair<std::array<std::uint64_t, 4>, SwapUsage> rows[] = {
      {{16 * kGiB, 8 * kGiB, 16 * kGiB, 9 * kGiB}, {0, 0}},  // no page file (Wine here)
      {{16 * kGiB, 8 * kGiB, 24 * kGiB, 12 * kGiB}, {8 * kGiB, 4 * kGiB}},
      {{16 * kGiB, 8 * kGiB, 24 * kGiB, 7 * kGiB}, {8 * kGiB, 8 * kGiB}},  // headroom below RAM
      {{16 * kGiB, 1 * kGiB, 24 * kGiB, 20 * kGiB}, {8 * kGiB, 0}},        // more than the file
  };
  for (const auto& [in, out] : rows) {
    const SwapUsage swap = text::SwapBeyondPhysical(in[0], in[1], in[2], in[3]);
    EXPECT_EQ(std::make_pair(swap.total_bytes, swap.used_bytes),
              std::make_pair(out.total_bytes, out.used_bytes))
        << in[2] << " " << in[3];
  }
}

TEST(WindowsText, BatteryFlagAndNames) {
  for (const std::uint8_t none : {128, 255, 128 | 8}) EXPECT_FALSE(text::HasSystemBattery(none));
  for (const std::uint8_t some : {0, 1, 2, 4, 8, 1 | 8}) EXPECT_TRUE(text::HasSystemBattery(some));
  const std::pair<std::u16string, std::string> names[] = {
      {std::u16string(u"NVIDIA GeForce RTX 4090") + std::u16string(8, u'\0'),
       "NVIDIA GeForce RTX 4090"},
      {u"AMD Radeon\u2122 \u00e9", "AMD Radeon\xE2\x84\xA2 \xC3\xA9"},
      {u"\U0001F600", "\xF0\x9F\x98\x80"},
      {std::u16string(1, char16_t(0xD800)) + u"x", "\xEF\xBF\xBDx"},  // unpaired surrogate
  };
  for (const auto& [utf16, utf8] : names) EXPECT_EQ(text::Utf16ToUtf8(utf16), utf8);
}

// ---- DXGI adapters, on the fake ------------------------------------------------

// Every object the fake lent came back once, on every path.
class Dxgi : public ::testing::Test {
 protected:
  void SetUp() override { fake::reset(); }
  void TearDown() override {
    EXPECT_EQ(fake::live_objects(), (std::map<std::string, int>{})) << "objects never released";
    EXPECT_EQ(fake::misuse(), std::vector<std::string>{});
  }
};

Reading<AdapterDesc> Adapter(const char16_t* name, std::uint32_t vendor, std::uint64_t dedicated,
                             std::uint32_t luid, std::uint32_t flags = 0) {
  AdapterDesc desc;
  std::char_traits<char16_t>::copy(desc.description.data(), name,
                                   std::char_traits<char16_t>::length(name));
  desc.vendor_id = vendor;
  desc.device_id = 0x2684;
  desc.dedicated_video_bytes = dedicated;
  desc.shared_system_bytes = 8 * kGiB;
  desc.luid_low = luid;
  desc.flags = flags;
  return Value(desc);
}
const auto kIntelUhd = Adapter(u"Intel(R) UHD Graphics 620", 0x8086, 128 * kMiB, 0xB1);
const auto kRtx = Adapter(u"NVIDIA GeForce RTX 4070 Laptop GPU", 0x10DE, 8 * kGiB, 0xD2);
const auto kBasicRender = Adapter(u"Microsoft Basic Render Driver", 0x1414, 0, 0xE3, 2);
constexpr const char* kListed = "Successfully queried DXGI for GPU Info.";

// From the fake's adapters to the survey; where there is no list, the report
// and the sums tell the same reason.
struct DxgiRow {
  const char* name;
  void (*arrange)(fake::Script&);
  ResultCode code;
  const char* message;
  std::vector<std::string> names;  // the GPUs listed
};
class DxgiRows : public Dxgi, public ::testing::WithParamInterface<DxgiRow> {};
TEST_P(DxgiRows, ListsEachHardwareAdapterOnce) {
  GetParam().arrange(fake::script());
  const gpu::GpuReadings readings = gpu::ReadDxgiAdapters();
  const auto [result, gpus] = gpu::SurveyOf(readings);
  EXPECT_EQ(std::make_pair(result.code, result.message),
            std::make_pair(GetParam().code, std::string(GetParam().message)));
  std::vector<std::string> names;
  for (const auto& gpu : gpus) names.push_back(gpu.name);
  EXPECT_EQ(names, GetParam().names);
  const auto report = gpu::ReportOf(readings);
  EXPECT_EQ(report.second.size(), gpus.size());
  if (result.code == ResultCode::Success) return;
  EXPECT_EQ(std::make_pair(report.first.code, report.first.message),
            std::make_pair(result.code, result.message));
  EXPECT_EQ(gpu::DedicatedSum(readings).diagnostic, result.message + "\n");
  EXPECT_EQ(gpu::FreeSum(readings).diagnostic, result.message + "\n");
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, DxgiRows, ::testing::ValuesIn(std::vector<DxgiRow>{
    {"no_dxgi_dll", [](fake::Script& s) { s.fails_at = Step::kLoadLibrary; s.error = 126; },
     ResultCode::LibraryLoadFailed, "LoadLibraryExW dxgi.dll: error 126", {}},
    {"no_entry_point", [](fake::Script& s) { s.fails_at = Step::kGetProcAddress; s.error = 127; },
     ResultCode::FunctionNotAvailable, "GetProcAddress CreateDXGIFactory1: error 127", {}},
    {"wine_without_display", [](fake::Script& s) { s.fails_at = Step::kCreateFactory; s.error = static_cast<std::int32_t>(0x887A0004u); },
     ResultCode::InitializationFailed, "CreateDXGIFactory1: error 0x887A0004", {}},
    {"basic_render_driver_only", [](fake::Script& s) { s.adapters = {kBasicRender}; },
     ResultCode::NoDevicesFound, "DXGI lists no hardware adapter", {}},
    {"hybrid_laptop", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx, kBasicRender}; }, ResultCode::Success, kListed,
     {"Intel(R) UHD Graphics 620", "NVIDIA GeForce RTX 4070 Laptop GPU"}},
    {"same_luid_twice", [](fake::Script& s) { s.adapters = {kRtx, kRtx}; }, ResultCode::Success, kListed,
     {"NVIDIA GeForce RTX 4070 Laptop GPU"}},
    {"enumeration_fails_midway", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx}; s.enum_fails_at = 1; s.enum_error = static_cast<std::int32_t>(0x887A0005u); },
     ResultCode::Error, "IDXGIFactory1::EnumAdapters1: error 0x887A0005", {}},
    {"description_fails", [](fake::Script& s) { s.adapters = {kIntelUhd, Failure<AdapterDesc>(static_cast<std::int32_t>(0x80004005u))}; },
     ResultCode::Error, "IDXGIAdapter1::GetDesc1: error 0x80004005", {}},
}), ByName);
// clang-format on

TEST(DxgiClassify, VendorAndCarveOut) {
  const std::pair<std::pair<std::uint32_t, std::uint64_t>, GpuIntegrationType> rows[] = {
      {{0x10DE, 0}, GpuIntegrationType::Discrete},
      {{0x8086, 128 * kMiB}, GpuIntegrationType::Integrated},
      {{0x8086, 8 * kGiB}, GpuIntegrationType::Discrete},  // Arc
      {{0x1002, 512 * kMiB}, GpuIntegrationType::Integrated},
      {{0x1002, 512 * kMiB + 1}, GpuIntegrationType::Discrete},
      {{0x4D4F4351, 0}, GpuIntegrationType::Integrated},
      {{0x1414, 0}, GpuIntegrationType::Unknown},
  };
  for (const auto& [in, type] : rows) EXPECT_EQ(gpu::ClassifyAdapter(in.first, in.second), type);
}

// The hybrid laptop through to the survey, the report and the sums, with a
// free figure for the NVIDIA GPU as a device-wide source would give it.
TEST_F(Dxgi, SurveyReportAndSums) {
  fake::script().adapters = {kIntelUhd, kRtx};
  gpu::GpuReadings readings = gpu::ReadDxgiAdapters();
  const auto gpus = gpu::SurveyOf(readings).second;
  ASSERT_EQ(gpus.size(), 2u);
  EXPECT_EQ(std::make_tuple(gpus[1].deviceId, gpus[1].integrationType, gpus[1].detectionPlatform,
                            gpus[1].dedicatedMemoryCapacityBytes, gpus[1].totalMemoryCapacityBytes),
            std::make_tuple(1, GpuIntegrationType::Discrete, GpuDetectionPlatform::DirectML,
                            8 * kGiB, 16 * kGiB));
  EXPECT_EQ(gpus[0].integrationType, GpuIntegrationType::Integrated);
  EXPECT_EQ(gpus[1].otherInfo,
            (decltype(gpus[1].otherInfo){{"pciVendorId", "0x10DE"},
                                         {"pciDeviceId", "0x2684"},
                                         {"adapterLuid", "0x00000000_0x000000D2"}}));
  EXPECT_EQ(gpu::DedicatedSum(readings).bytes, 8 * kGiB + 128 * kMiB);
  EXPECT_EQ(gpu::FreeSum(readings).diagnostic,
            "DXGI: no GPU reports its device-wide free memory\n");

  readings.gpus[1].free_bytes = 3 * kGiB;
  EXPECT_EQ(gpu::FreeSum(readings).bytes, 3 * kGiB);
  const auto [overall, devices] = gpu::ReportOf(readings);
  EXPECT_EQ(overall.code, ResultCode::Success);
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].result.code, ResultCode::FunctionNotAvailable);
  EXPECT_EQ(devices[0].freeVramBytes, std::nullopt);
  EXPECT_EQ(std::make_tuple(devices[1].result.code, *devices[1].deviceId,
                            *devices[1].totalVramBytes, *devices[1].freeVramBytes),
            std::make_tuple(ResultCode::Success, 1, 8 * kGiB, 3 * kGiB));
}

}  // namespace
