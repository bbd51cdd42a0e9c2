// The Windows logic on any OS: the SMBIOS parse (a table recorded under Wine
// and hand-made ones after DMTF DSP0134), the page file, the battery flag,
// UTF-16 names, and the DXGI adapters on a fake of DXGI that checks every
// object is released, joined with NVML's GPUs, into the survey and the sums.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "dxgi/fake_dxgi.h"
#include "platform/gpu_list.h"
#include "platform/library.h"
#include "platform/windows/gpu_readings.h"
#include "platform/windows/windows_text.h"

namespace {

namespace text = vemora::platform::windows_text;
namespace gpu = vemora::platform::windows_gpu;
namespace fake = vemora::platform::fake_dxgi;
using vemora::platform::Failure;
using vemora::platform::GpuList;
using vemora::platform::GpuReading;
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
  desc.subsys_id = 0x16F31043;
  desc.dedicated_video_bytes = dedicated;
  desc.shared_system_bytes = 8 * kGiB;
  desc.luid_low = luid;
  desc.flags = flags;
  return Value(desc);
}
const auto kIntelUhd = Adapter(u"Intel(R) UHD Graphics 620", 0x8086, 128 * kMiB, 0xB1);
const auto kRtx = Adapter(u"NVIDIA GeForce RTX 4070 Laptop GPU", 0x10DE, 8 * kGiB, 0xD2);
const auto kBasicRender = Adapter(u"Microsoft Basic Render Driver", 0x1414, 0, 0xE3, 2);

// From the fake's adapters to the survey's result and names.
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
  const auto [result, gpus] = vemora::platform::SurveyOf(gpu::ReadDxgiAdapters());
  EXPECT_EQ(std::make_pair(result.code, result.message),
            std::make_pair(GetParam().code, std::string(GetParam().message)));
  std::vector<std::string> names;
  for (const auto& gpu : gpus) names.push_back(gpu.name);
  EXPECT_EQ(names, GetParam().names);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, DxgiRows, ::testing::ValuesIn(std::vector<DxgiRow>{
    {"no_dxgi_dll", [](fake::Script& s) { s.fails_at = Step::kLoadLibrary; s.error = 126; },
     ResultCode::NoDevicesFound, "No GPU found: DXGI could not list adapters (LoadLibraryExW dxgi.dll: error 126).", {}},
    {"no_entry_point", [](fake::Script& s) { s.fails_at = Step::kGetProcAddress; s.error = 127; },
     ResultCode::NoDevicesFound, "No GPU found: DXGI could not list adapters (GetProcAddress CreateDXGIFactory1: error 127).", {}},
    {"wine_without_display", [](fake::Script& s) { s.fails_at = Step::kCreateFactory; s.error = static_cast<std::int32_t>(0x887A0004u); },
     ResultCode::NoDevicesFound, "No GPU found: DXGI could not list adapters (CreateDXGIFactory1: error 0x887A0004).", {}},
    {"basic_render_driver_only", [](fake::Script& s) { s.adapters = {kBasicRender}; },
     ResultCode::NoDevicesFound, "No GPU found: DXGI lists no hardware adapter.", {}},
    {"hybrid_laptop", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx, kBasicRender}; },
     ResultCode::Success, "Found 2 GPUs through DXGI.", {"Intel(R) UHD Graphics 620", "NVIDIA GeForce RTX 4070 Laptop GPU"}},
    {"same_luid_twice", [](fake::Script& s) { s.adapters = {kRtx, kRtx}; },
     ResultCode::Success, "Found 1 GPU through DXGI.", {"NVIDIA GeForce RTX 4070 Laptop GPU"}},
    {"enumeration_fails_midway", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx}; s.enum_fails_at = 1; s.enum_error = static_cast<std::int32_t>(0x887A0005u); },
     ResultCode::Success, "Found 1 GPU through DXGI. Also: DXGI could not list adapters (IDXGIFactory1::EnumAdapters1: error 0x887A0005).", {"Intel(R) UHD Graphics 620"}},
    {"description_fails", [](fake::Script& s) { s.adapters = {Failure<AdapterDesc>(static_cast<std::int32_t>(0x80004005u))}; },
     ResultCode::NoDevicesFound, "No GPU found: DXGI could not list adapters (IDXGIAdapter1::GetDesc1: error 0x80004005).", {}},
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

// The hybrid laptop's adapters as the survey and the per-device report show them.
TEST_F(Dxgi, AdaptersAsGpus) {
  fake::script().adapters = {kIntelUhd, kRtx};
  const GpuList list = gpu::ReadDxgiAdapters();
  const auto gpus = vemora::platform::SurveyOf(list).second;
  ASSERT_EQ(gpus.size(), 2u);
  EXPECT_EQ(std::make_tuple(gpus[1].deviceId, gpus[1].integrationType, gpus[1].detectionPlatform,
                            gpus[1].dedicatedMemoryCapacityBytes, gpus[1].totalMemoryCapacityBytes),
            std::make_tuple(1, GpuIntegrationType::Discrete, GpuDetectionPlatform::DirectML,
                            8 * kGiB, 8 * kGiB));
  EXPECT_EQ(gpus[0].integrationType, GpuIntegrationType::Integrated);
  EXPECT_EQ(gpus[1].otherInfo,
            (decltype(gpus[1].otherInfo){{"pciVendorId", "0x10DE"},
                                         {"pciDeviceId", "0x2684"},
                                         {"adapterLuid", "0x00000000_0x000000D2"}}));
  EXPECT_EQ(std::make_pair(list.gpus[1].pci_device_id, list.gpus[1].pci_subsystem_id),
            std::make_pair(0x268410DEu, 0x16F31043u));
  const auto devices = vemora::platform::LiveMemoryOf(list).second;
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(
      std::make_tuple(devices[0].result.code, devices[0].result.message, devices[0].totalVramBytes,
                      devices[0].freeVramBytes),
      std::make_tuple(ResultCode::Error,
                      std::string("DXGI gives no device-wide free memory for this GPU "
                                  "(QueryVideoMemoryInfo is per process)"),
                      std::optional<std::uint64_t>(128 * kMiB), std::optional<std::uint64_t>()));
}

// ---- The NVML join --------------------------------------------------------------

GpuReading Card(const char* name, std::uint32_t pci_device_id, std::uint32_t subsystem,
                std::optional<std::uint64_t> free = std::nullopt) {
  GpuReading gpu;
  gpu.name = name;
  gpu.source = "DXGI";
  gpu.pci_device_id = pci_device_id;
  gpu.pci_subsystem_id = subsystem;
  gpu.total_bytes = 24 * kGiB;
  gpu.free_bytes = free;
  if (!free) gpu.memory_error = std::string("no free figure from ") + name;
  return gpu;
}
constexpr std::uint32_t k4090 = 0x268410DE, kA2000 = 0x25B610DE, kArc = 0x56A08086;

// DXGI's adapters, what NVML lists, and the free figure (or why there is
// none) each adapter ends with.
struct JoinRow {
  const char* name;
  std::vector<GpuReading> dxgi;
  GpuList nvml;
  std::vector<std::variant<std::uint64_t, std::string>> free;
};
class Join : public ::testing::TestWithParam<JoinRow> {};
TEST_P(Join, EachNvidiaAdapterTakesItsOwnNvmlGpu) {
  GpuList list{GetParam().dxgi, {}};
  vemora::platform::JoinNvml(GetParam().nvml, &list);
  std::vector<std::variant<std::uint64_t, std::string>> free;
  for (const auto& gpu : list.gpus) {
    if (gpu.free_bytes) {
      free.emplace_back(*gpu.free_bytes);
    } else {
      free.emplace_back(gpu.memory_error);
    }
  }
  EXPECT_EQ(free, GetParam().free);
}
const GpuReading kCardA = Card("4090", k4090, 0x1), kCardB = Card("4090", k4090, 0x2);
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Join, ::testing::ValuesIn(std::vector<JoinRow>{
    {"two_identical_cards_in_order", {kCardA, kCardA}, {{Card("a", k4090, 0x1, 1 * kGiB), Card("b", k4090, 0x1, 2 * kGiB)}, {}},
     {1 * kGiB, 2 * kGiB}},
    {"subsystem_tells_them_apart", {kCardB, kCardA}, {{Card("a", k4090, 0x1, 1 * kGiB), Card("b", k4090, 0x2, 2 * kGiB)}, {}},
     {2 * kGiB, 1 * kGiB}},
    {"card_nvml_does_not_list", {kCardA, Card("A2000", kA2000, 0x1)}, {{Card("a", k4090, 0x1, 1 * kGiB)}, {}},
     {1 * kGiB, "NVML lists no GPU of PCI id 10DE:25B6"}},
    {"one_nvml_gpu_for_two_adapters", {kCardA, kCardA}, {{Card("a", k4090, 0x1, 1 * kGiB)}, {}},
     {1 * kGiB, "NVML lists no GPU of PCI id 10DE:2684"}},
    {"nvml_missing", {kCardA}, {{}, {{"NVML could not be loaded (LoadLibrary nvml.dll: error 126)", false}}},
     {"NVML could not be loaded (LoadLibrary nvml.dll: error 126)"}},
    {"other_vendors_untouched", {Card("Arc", kArc, 0x1)}, {{Card("a", kArc, 0x1, 1 * kGiB)}, {}},
     {"no free figure from Arc"}},
    {"nvml_memory_error_kept", {kCardA}, {{Card("lost", k4090, 0x1)}, {}},
     {"no free figure from lost"}},
}), ByName);
// clang-format on

TEST(JoinNotes, FailuresJoinTheListAndTheSumsFail) {
  GpuList list{{kCardA}, {}};
  vemora::platform::JoinNvml(
      GpuList{{}, {{"NVML could not start (nvmlInit_v2: Driver Not Loaded)", true}}}, &list);
  const auto survey = vemora::platform::SurveyOf(list).first;
  EXPECT_EQ(survey.message,
            "Found 1 GPU through DXGI. Also: NVML could not start (nvmlInit_v2: Driver Not "
            "Loaded).");
  EXPECT_EQ(vemora::platform::TotalBytesOf(list).value, 24 * kGiB);
  EXPECT_FALSE(vemora::platform::FreeBytesOf(list).ok());
}

#ifdef _WIN32
// ---- LoadLibrary, for nvml.dll ----------------------------------------------------

TEST(Library, LoadsFromSystem32AndNamesTheError) {
  namespace library = vemora::platform::library;
  std::string error;
  EXPECT_EQ(library::Open("vemora_no_such.dll", &error), nullptr);
  EXPECT_EQ(error, "LoadLibrary vemora_no_such.dll: error 126");
  void* kernel32 = library::Open("kernel32.dll", &error);
  ASSERT_NE(kernel32, nullptr) << error;
  EXPECT_NE(library::Find(kernel32, "GetTickCount64"), nullptr);
  EXPECT_EQ(library::Find(kernel32, "nvmlInit_v2"), nullptr);
  library::Close(kernel32);
}
#endif

}  // namespace
