// The GPU facts of Linux: the list logic on hand-built readings, NVML on the
// test NVML (test/fakes/nvml), amdgpu on the machine trees, and the parsers.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/gpu_list.h"
#include "platform/linux/linux_gpus.h"
#include "platform/linux/proc_text.h"
#include "platform/nvml.h"

namespace {

namespace platform = vemora::platform;
namespace text = vemora::platform::linux_text;
using namespace vemora::system;
using platform::GpuList;
using Bytes = std::optional<std::uint64_t>;

constexpr auto ByName = [](const auto& row) { return std::string(row.param.name); };

std::string Show(const Bytes& bytes) { return bytes ? std::to_string(*bytes) : "-"; }

// One line per GPU ("name total/free why"), each followed, when described, by
// its facts ("Discrete ROCm 6.10.5 | driverVersion=6.10.5 pciBusId=..."); then
// one line per note.
std::string Show(const GpuList& list, bool described = false) {
  std::string out;
  for (const auto& gpu : list.gpus) {
    out += gpu.name + " " + Show(gpu.total_bytes) + "/" + Show(gpu.free_bytes) +
           (gpu.memory_error.empty() ? "" : " " + gpu.memory_error) + "\n";
    if (!described) continue;
    out += GpuIntegrationTypeToStr(gpu.integration) + " " +
           GpuDetectionPlatformToStr(gpu.platform) + " " + gpu.platform_version + " |";
    for (const auto& [key, value] : std::map(gpu.other_info.begin(), gpu.other_info.end()))
      out += " " + key + "=" + value;
    out += "\n";
  }
  for (const auto& note : list.notes)
    out += (note.failed ? "failed: " : "note: ") + note.text + "\n";
  return out;
}

// ---- The list: what only hand-built readings reach (the JavaScript tests drive the rest) ----

platform::GpuReading Gpu(const char* name, Bytes total, Bytes free, const char* why = "") {
  return {name, "NVML", {}, {}, "", total, free, why, {}};
}

// The survey's message and totals, the report's message and figures, then the
// two sums and what they wrote.
std::string Answers(const GpuList& list) {
  const auto [found, gpus] = platform::SurveyOf(list);
  std::string out = ResultCodeToStr(found.code) + ": " + found.message + " |";
  for (const auto& gpu : gpus) out += " " + std::to_string(gpu.totalMemoryCapacityBytes);
  const auto [overall, devices] = platform::LiveMemoryOf(list);
  out += "\n" + ResultCodeToStr(overall.code) + ": " + overall.message + " |";
  for (const auto& d : devices) {
    out += " " + ResultCodeToStr(d.result.code) + " " + Show(d.totalVramBytes) + "/" +
           Show(d.freeVramBytes) + ";";
  }
  ::testing::internal::CaptureStderr();
  const auto total = platform::TotalBytesOf(list), free = platform::FreeBytesOf(list);
  return out + "\n" + Show(total.ok() ? Bytes(total.value) : Bytes()) + " " +
         Show(free.ok() ? Bytes(free.value) : Bytes()) + "\n" +
         ::testing::internal::GetCapturedStderr();
}

TEST(GpuListOf, NoGpuFreeUnreadAndPast64Bits) {
  EXPECT_EQ(Answers({{}, {{"NVML could not be loaded (x)", false}, {"no card", false}}}),
            "NoDevicesFound: No GPU found: NVML could not be loaded (x); no card. |\n"
            "NoDevicesFound: No GPU found: NVML could not be loaded (x); no card. |\n- -\n"
            "GPU memory: No GPU found: NVML could not be loaded (x); no card.\n"
            "GPU memory: No GPU found: NVML could not be loaded (x); no card.\n");
  EXPECT_EQ(Answers({{Gpu("A", 1ull << 63, 1), Gpu("B", 1ull << 63, std::nullopt, "used: EISDIR"),
                      Gpu("C", std::nullopt, std::nullopt, "lost")},
                     {{"amdgpu failed", true}}}),
            "Success: Found 3 GPUs through NVML. Also: amdgpu failed. | 9223372036854775808 "
            "9223372036854775808 18446744073709551615\n"
            "Success: Read the memory of 1 of 3 GPUs; each device says why. | Success "
            "9223372036854775808/1; Error 9223372036854775808/-; Error -/-;\n- -\n"
            "GPU memory: the GPUs' figures add up past 64 bits\n"
            "GPU memory: B (GPU 1): used: EISDIR\n");
}

// ---- NVML on the test NVML ---------------------------------------------------------------

struct NvmlRow {
  const char* name;
  const char* library;
  const char* script;
  const char* expected;
};
class NvmlReads : public ::testing::TestWithParam<NvmlRow> {};

TEST_P(NvmlReads, WhatItLists) {
  const NvmlRow& row = GetParam();
  // Scripted, and kept loaded so that the session under test finds this copy.
  const std::unique_ptr<void, int (*)(void*)> fake(dlopen(row.library, RTLD_NOW), dlclose);
  if (auto set = fake ? dlsym(fake.get(), "vemora_fake_nvml_script") : nullptr)
    reinterpret_cast<void (*)(const char*)>(set)(row.script);
  GpuList list;
  platform::Nvml(row.library).Read(&list, false);
  EXPECT_EQ(Show(list), row.expected);
}

// B's memory fails: the entry point named is the one that was asked.
constexpr const char* kOneLost = "gpu|A|8|7\ngpu|B|8|7|||0|15\n";
constexpr const char* kAskedFirst = "A 8/7\nB -/- nvmlDeviceGetMemoryInfo: GPU is lost\n";

const NvmlRow kNvmlRows[] = {
    {"without_v2_entry_point", VEMORA_FAKE_NVML_WITHOUT_V2, kOneLost, kAskedFirst},
    {"v2_not_supported", VEMORA_FAKE_NVML, "v2|3\ngpu|A|8|7\ngpu|B|8|7|||0|15\n", kAskedFirst},
    {"gpu_lost", VEMORA_FAKE_NVML, "gpu|A|8|7|||15\ngpu|B|8|7|||0|15\n",
     "NVIDIA GPU 0 -/- nvmlDeviceGetHandleByIndex_v2: GPU is lost\n"
     "B -/- nvmlDeviceGetMemoryInfo_v2: GPU is lost\n"},
    {"driver_not_loaded", VEMORA_FAKE_NVML, "init|9\ngpu|A|8|7\n",
     "failed: NVML could not start (nvmlInit_v2: Driver Not Loaded)\n"},
    {"count_fails", VEMORA_FAKE_NVML, "count|999\ngpu|A|8|7\n",
     "failed: NVML could not count its GPUs (nvmlDeviceGetCount_v2: Unknown Error)\n"},
    {"no_gpu", VEMORA_FAKE_NVML, "", "note: NVML lists no GPU\n"},
    {"not_installed", "/nonexistent/libnvidia-ml.so.1", "",
     "note: NVML could not be loaded (/nonexistent/libnvidia-ml.so.1: cannot open shared object "
     "file: No such file or directory)\n"},
    {"not_nvml", "libm.so.6", "", "failed: libm.so.6 lacks NVML's entry points\n"},
};
INSTANTIATE_TEST_SUITE_P(Rows, NvmlReads, ::testing::ValuesIn(kNvmlRows), ByName);

// ---- amdgpu on the machine trees ---------------------------------------------------------

struct TreeRow {
  const char* name;
  const char* tree;
  bool describe;
  const char* expected;
};
class AmdgpuTree : public ::testing::TestWithParam<TreeRow> {};

TEST_P(AmdgpuTree, Reads) {
  const std::string root = VEMORA_FIXTURES "/machines/" + std::string(GetParam().tree);
  GpuList list;
  platform::linux_gpus::ReadAmdgpu(root.c_str(), &list, GetParam().describe);
  EXPECT_EQ(Show(list, GetParam().describe), GetParam().expected);
}

const TreeRow kTrees[] = {
    {"discrete", "amdgpu-discrete-handmade", true,
     "AMD Radeon RX 6800 XT 17163091968/16760438784\n"
     "Discrete ROCm 6.10.5 | driverVersion=6.10.5 pciBusId=0000:03:00.0 pciDeviceId=1002:73BF\n"},
    {"discrete_memory_only", "amdgpu-discrete-handmade", false,
     "AMD GPU 1002:73BF 17163091968/16760438784\n"},
    {"apu", "amdgpu-apu-handmade", true,
     "AMD Radeon Vega 11 Graphics 536870912/434110464\n"
     "Integrated ROCm  | pciBusId=0000:0a:00.0 pciDeviceId=1002:15DD\n"},
    // In PCI slot order, not card order.
    {"memory_unreadable", "amdgpu-memory-unreadable-handmade", true,
     "AMD GPU 1002:73BF 17163091968/- /sys/class/drm/card1/device/mem_info_vram_used: Is a "
     "directory\nDiscrete ROCm  | pciBusId=0000:03:00.0 pciDeviceId=1002:73BF\n"
     "AMD Instinct MI210 -/- /sys/class/drm/card0/device/mem_info_vram_total: No such file or "
     "directory\nUnknown ROCm  | pciBusId=0000:0b:00.0 pciDeviceId=1002:740F\n"},
    {"nouveau", "nouveau-handmade", true,
     "note: no card in /sys/class/drm is driven by amdgpu (card0: nouveau)\n"},
    {"no_drm", "debian12-x86_64-vm", true,
     "note: no card in /sys/class/drm is driven by amdgpu (/sys/class/drm: No such file or "
     "directory)\n"},
};
INSTANTIATE_TEST_SUITE_P(Trees, AmdgpuTree, ::testing::ValuesIn(kTrees), ByName);

// ---- The parsers -------------------------------------------------------------------------

TEST(AmdgpuTexts, Parse) {
  const auto uevent = text::ParsePciUevent("DRIVER=amdgpu\nPCI_ID=1002:73BF\r\nPCI_SLOT_NAME=x");
  EXPECT_EQ(std::string(uevent.driver) + "|" + std::string(uevent.pci_id) + "|" +
                std::string(uevent.slot),
            "amdgpu|1002:73BF|x");
  EXPECT_EQ(text::ParsePciUevent("PCI_ID=1\nMODALIAS=x=y\n").driver, "");
  // clang-format off
  const std::pair<const char*, Bytes> counts[] = {{"17163091968\n", 17163091968u}, {"0", 0u},
      {"18446744073709551616\n", std::nullopt}, {"-1\n", std::nullopt}, {"12 kB\n", std::nullopt}, {"", std::nullopt}};
  const std::pair<const char*, std::optional<std::uint32_t>> hex[] = {{"0xc1\n", 0xc1u}, {"73BF", 0x73bfu},
      {"0x", std::nullopt}, {"1g", std::nullopt}, {"100000000", std::nullopt}};
  // clang-format on
  for (const auto& [attribute, expected] : counts) EXPECT_EQ(text::ParseCount(attribute), expected);
  for (const auto& [id, expected] : hex) EXPECT_EQ(text::ParseHexId(id), expected) << id;
  EXPECT_TRUE(text::IsDrmCard("card12"));
  for (const char* other : {"card", "card0-DP-1", "renderD128", "xcard0"})
    EXPECT_FALSE(text::IsDrmCard(other)) << other;
  // The first of duplicate rows wins, as in libdrm; a row without a name is skipped.
  constexpr std::string_view kIds =
      "# comment, with commas\n1.0.0\n15D8,\t91,\t\n15D8,\t91,\tVega 3\n15D8, 91, Embedded\n"
      "73BF,\tC1,\tAMD Radeon RX 6800 XT";
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x15d8, 0x91), "Vega 3");
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x73bf, 0xc1), "AMD Radeon RX 6800 XT");
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x73bf, 0xc0), std::nullopt);
}

}  // namespace
