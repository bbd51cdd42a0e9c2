// The Windows logic on any OS: SMBIOS tables made after DMTF DSP0134, the page
// file, the battery flag, UTF-16 names, DXGI's adapters on a fake whose main()
// checks every release, and their join with NVML's GPUs.
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "dxgi/fake_dxgi.h"
#include "platform/gpu_list.h"
#include "platform/library.h"
#include "platform/windows/gpu_readings.h"
#include "platform/windows/windows_text.h"

namespace {

using namespace vemora::platform;
using namespace vemora::system;
namespace text = windows_text;
namespace gpu = windows_gpu;
namespace fake = fake_dxgi;
using dxgi::AdapterDesc;
using Step = dxgi::FactoryCreation::Step;
using Bytes = std::optional<std::uint64_t>;

constexpr std::uint64_t kMiB = 1ull << 20, kGiB = 1ull << 30;
constexpr auto ByName = [](const auto& info) { return std::string(info.param.name); };

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

const std::string kBios = Structure(0, std::string(14, '\0'), {"Apple Inc.", "1968.0.0.0.0"});
const std::string kEnd = Structure(127, "", {});
const std::vector<std::string> kMac = {"Apple Inc.", "MacBookPro16,1"};

struct SmbiosRow {
  const char* name;
  std::string raw;
  std::optional<std::string> expected;
};
class Smbios : public ::testing::TestWithParam<SmbiosRow> {};
TEST_P(Smbios, ProductName) {
  EXPECT_EQ(text::SmbiosSystemProductName(GetParam().raw), GetParam().expected);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Smbios, ::testing::ValuesIn(std::vector<SmbiosRow>{
    {"boot_camp_mac", Raw(kBios + System(2, kMac) + kEnd), "MacBookPro16,1"},
    {"after_a_structure_without_strings", Raw(Structure(3, "x", {}) + System(1, {" ThinkPad X1 \t"})), "ThinkPad X1"},
    {"blank_name", Raw(System(1, {"   "})), std::nullopt},
    {"index_past_the_strings", Raw(System(3, kMac)), std::nullopt},
    // Its first string's first byte is where the product index would be.
    {"system_information_too_short", Raw(Structure(1, std::string{1}, {"\x01 MacBookPro16,1"})), std::nullopt},
    {"end_of_table_first", Raw(kEnd + System(2, kMac)), std::nullopt},
    {"length_cuts_the_table", Raw(kBios + System(2, kMac), static_cast<std::uint32_t>(kBios.size() + 10)), std::nullopt},
    {"strings_unterminated", Raw(kBios + System(2, kMac).substr(0, 40)), std::nullopt},
    {"header_length_below_4", Raw(std::string{3, 2, 0, 0, 0, 0} + System(2, kMac)), std::nullopt},
    {"shorter_than_the_header", std::string(7, '\0'), std::nullopt},
}), ByName);
// clang-format on

TEST(WindowsText, PageFileBeyondPhysical) {
  // {total phys, avail phys, total page file, avail page file, total, used}
  const std::array<std::uint64_t, 6> rows[] = {
      {16, 8, 12, 9, 0, 0},   // a page file smaller than RAM
      {16, 8, 24, 7, 8, 8},   // headroom below RAM
      {16, 1, 24, 20, 8, 0},  // more than the file
  };
  for (const auto& r : rows) {
    const auto swap = text::SwapBeyondPhysical(r[0], r[1], r[2], r[3]);
    EXPECT_EQ(std::make_pair(swap.total_bytes, swap.used_bytes), std::make_pair(r[4], r[5]));
  }
}

TEST(WindowsText, BatteryFlagAndNames) {
  for (const std::uint8_t none : {128, 255, 128 | 8}) EXPECT_FALSE(text::HasSystemBattery(none));
  for (const std::uint8_t some : {0, 1 | 8}) EXPECT_TRUE(text::HasSystemBattery(some));
  const std::pair<std::u16string, std::string> names[] = {
      {std::u16string(u"NVIDIA GeForce RTX 4090") + std::u16string(8, u'\0'),
       "NVIDIA GeForce RTX 4090"},
      {u"AMD Radeon\u2122 \u00e9", "AMD Radeon\xE2\x84\xA2 \xC3\xA9"},
      {u"\U0001F600", "\xF0\x9F\x98\x80"},
      {std::u16string(1, char16_t(0xD800)) + u"x", "\xEF\xBF\xBDx"},  // unpaired surrogate
  };
  for (const auto& [utf16, utf8] : names) EXPECT_EQ(text::Utf16ToUtf8(utf16), utf8);
}

// Each GPU by name, with `memory` followed by "total/free" (or "total/- why"),
// then each note.
std::string Show(const GpuList& list, bool memory = false) {
  std::string out;
  for (const auto& gpu : list.gpus) {
    out += gpu.name;
    if (memory) {
      out += " " + std::to_string(gpu.total_bytes.value_or(0)) + "/" +
             (gpu.free_bytes ? std::to_string(*gpu.free_bytes) : "- " + gpu.memory_error);
    }
    out += "\n";
  }
  for (const auto& note : list.notes)
    out += (note.failed ? "failed: " : "note: ") + note.text + "\n";
  return out;
}

// Each with an RTX 4090's device and subsystem ids; the RTX's name has blanks to trim.
auto Adapter(std::u16string name, std::uint32_t vendor, std::uint64_t dedicated, std::uint32_t luid,
             std::uint32_t flags = 0) {
  AdapterDesc desc{{}, vendor, 0x2684, 0x16F31043, dedicated, 0, 0, luid, 0, flags};
  std::copy(name.begin(), name.end(), desc.description.begin());
  return Value(desc);
}
const auto kIntelUhd = Adapter(u"Intel(R) UHD Graphics 620", 0x8086, 128 * kMiB, 0xB1);
const auto kRtx = Adapter(u"NVIDIA GeForce RTX 4070 Laptop GPU  ", 0x10DE, 8 * kGiB, 0xD2);
const auto kBasicRender = Adapter(u"Microsoft Basic Render Driver", 0x1414, 0, 0xE3, 2);

struct DxgiRow {
  const char* name;
  void (*arrange)(fake::Script&);
  const char* expected;  // Show() of what DXGI lists
};
class DxgiRows : public ::testing::TestWithParam<DxgiRow> {};
TEST_P(DxgiRows, ListsEachHardwareAdapterOnce) {
  GetParam().arrange(fake::script());
  EXPECT_EQ(Show(gpu::ReadDxgiAdapters()), GetParam().expected);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, DxgiRows, ::testing::ValuesIn(std::vector<DxgiRow>{
    {"no_dxgi_dll", [](fake::Script& s) { s.fails_at = Step::kLoadLibrary; s.error = 126; },
     "failed: DXGI could not list adapters (LoadLibraryExW dxgi.dll: error 126)\n"},
    {"no_entry_point", [](fake::Script& s) { s.fails_at = Step::kGetProcAddress; s.error = 127; },
     "failed: DXGI could not list adapters (GetProcAddress CreateDXGIFactory1: error 127)\n"},
    {"wine_without_display", [](fake::Script& s) { s.fails_at = Step::kCreateFactory; s.error = std::int32_t(0x887A0004u); },
     "failed: DXGI could not list adapters (CreateDXGIFactory1: error 0x887A0004)\n"},
    {"basic_render_driver_only", [](fake::Script& s) { s.adapters = {kBasicRender}; }, "note: DXGI lists no hardware adapter\n"},
    {"hybrid_laptop_one_luid_twice", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx, kBasicRender, kRtx}; },
     "Intel(R) UHD Graphics 620\nNVIDIA GeForce RTX 4070 Laptop GPU\n"},
    {"enumeration_fails_midway", [](fake::Script& s) { s.adapters = {kIntelUhd, kRtx}; s.enum_fails_at = 1; s.enum_error = std::int32_t(0x887A0005u); },
     "Intel(R) UHD Graphics 620\nfailed: DXGI could not list adapters (IDXGIFactory1::EnumAdapters1: error 0x887A0005)\n"},
    {"description_fails", [](fake::Script& s) { s.adapters = {Failure<AdapterDesc>(std::int32_t(0x80004005u))}; },
     "failed: DXGI could not list adapters (IDXGIAdapter1::GetDesc1: error 0x80004005)\n"},
}), ByName);
// clang-format on

TEST(DxgiClassify, VendorAndCarveOut) {
  const std::pair<std::pair<std::uint32_t, std::uint64_t>, GpuIntegrationType> rows[] = {
      {{0x10DE, 0}, GpuIntegrationType::Discrete},
      {{0x8086, 8 * kGiB}, GpuIntegrationType::Discrete},  // Arc
      {{0x1002, 512 * kMiB}, GpuIntegrationType::Integrated},
      {{0x1002, 512 * kMiB + 1}, GpuIntegrationType::Discrete},
      {{0x4D4F4351, 0}, GpuIntegrationType::Integrated},
      {{0x1414, 0}, GpuIntegrationType::Unknown},
  };
  for (const auto& [in, type] : rows) EXPECT_EQ(gpu::ClassifyAdapter(in.first, in.second), type);
}

// The hybrid laptop's integrated GPU, and its RTX with its ids laid out as
// NVML's and no free figure.
TEST(Dxgi, AdaptersAsReadings) {
  fake::script().adapters = {kIntelUhd, kRtx};
  const GpuList list = gpu::ReadDxgiAdapters();
  ASSERT_EQ(list.gpus.size(), 2u);
  const GpuReading& rtx = list.gpus[1];
  EXPECT_EQ(
      std::make_tuple(list.gpus[0].integration, rtx.source, rtx.platform, rtx.total_bytes,
                      rtx.free_bytes, rtx.memory_error, rtx.pci_device_id, rtx.pci_subsystem_id),
      std::make_tuple(GpuIntegrationType::Integrated, "DXGI", GpuDetectionPlatform::DirectML,
                      Bytes(8 * kGiB), Bytes(),
                      "DXGI gives no device-wide free memory for this GPU "
                      "(QueryVideoMemoryInfo is per process)",
                      0x268410DEu, 0x16F31043u));
  EXPECT_EQ(rtx.other_info, (decltype(rtx.other_info){{"pciVendorId", "0x10DE"},
                                                      {"pciDeviceId", "0x2684"},
                                                      {"adapterLuid", "0x00000000_0x000000D2"}}));
}

// A GPU as DXGI or NVML lists it; without a free figure it says why.
GpuReading Card(const char* name, std::uint32_t pci_device_id, std::uint32_t subsystem, Bytes total,
                Bytes free = std::nullopt) {
  const std::string why = free ? "" : std::string("no free figure from ") + name;
  return {name, "DXGI", {}, {}, "", total, free, why, {}, pci_device_id, subsystem};
}
constexpr std::uint32_t k4090 = 0x268410DE, kA2000 = 0x25B610DE, kArc = 0x56A08086;
const GpuReading kCardA = Card("A", k4090, 0x1, 24), kCardB = Card("B", k4090, 0x2, 24);

// DXGI's adapters, what NVML lists, and Show() of the adapters afterwards.
struct JoinRow {
  const char* name;
  std::vector<GpuReading> dxgi;
  GpuList nvml;
  const char* expected;
};
class Join : public ::testing::TestWithParam<JoinRow> {};
TEST_P(Join, EachNvidiaAdapterTakesItsOwnNvmlGpu) {
  GpuList list{GetParam().dxgi, {}};
  JoinNvml(GetParam().nvml, &list);
  EXPECT_EQ(Show(list, true), GetParam().expected);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Join, ::testing::ValuesIn(std::vector<JoinRow>{
    {"subsystem_then_order_tell_cards_apart", {kCardB, kCardA, kCardA},
     {{Card("a", k4090, 0x1, 25, 1), Card("b", k4090, 0x2, 25, 2), Card("c", k4090, 0x1, 25, 3)}, {}}, "B 25/2\nA 25/1\nA 25/3\n"},
    {"cards_nvml_does_not_list", {kCardA, kCardA, Card("C", kA2000, 0x1, 24)}, {{Card("a", k4090, 0x1, 25, 1)}, {}},
     "A 25/1\nA 24/- NVML lists no GPU of PCI id 10DE:2684\nC 24/- NVML lists no GPU of PCI id 10DE:25B6\n"},
    {"nvml_without_gpus_says_why", {kCardA}, {{}, {{"NVML lists no GPU", false}, {"NVML could not start (x)", true}}},
     "A 24/- NVML lists no GPU; NVML could not start (x)\nfailed: NVML could not start (x)\n"},
    {"other_vendors_untouched", {Card("Arc", kArc, 0x1, 24)}, {{Card("a", kArc, 0x1, 25, 1)}, {}}, "Arc 24/- no free figure from Arc\n"},
    {"nvml_memory_error_kept", {kCardA}, {{Card("lost", k4090, 0x1, std::nullopt)}, {}}, "A 24/- no free figure from lost\n"},
}), ByName);
// clang-format on

#ifdef _WIN32
TEST(Library, LoadsFromSystem32AndNamesTheError) {
  namespace library = vemora::platform::library;
  std::string error;
  EXPECT_EQ(library::Open("vemora_no_such.dll", &error), nullptr);
  EXPECT_EQ(error, "LoadLibrary vemora_no_such.dll: error 126");
  void* kernel32 = library::Open("kernel32.dll", &error);
  ASSERT_NE(kernel32, nullptr) << error;
  EXPECT_NE(library::Find(kernel32, "GetTickCount64"), nullptr);
  library::Close(kernel32);
}
#endif

}  // namespace
