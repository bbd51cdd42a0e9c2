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

// The two sums, then the lines they wrote.
std::string Sums(const GpuList& list) {
  ::testing::internal::CaptureStderr();
  const auto total = platform::TotalBytesOf(list), free = platform::FreeBytesOf(list);
  return Show(total.ok() ? Bytes(total.value) : Bytes()) + " " +
         Show(free.ok() ? Bytes(free.value) : Bytes()) + "\n" +
         ::testing::internal::GetCapturedStderr();
}

TEST(GpuListOf, NoGpuAndSumsPast64Bits) {
  const GpuList none{{}, {{"NVML could not be loaded (x)", false}, {"no card", false}}};
  const std::string why = "No GPU found: NVML could not be loaded (x); no card.";
  const auto found = platform::SurveyOf(none).first;
  const auto overall = platform::LiveMemoryOf(none).first;
  EXPECT_EQ(std::tie(found.code, found.message, overall.code, overall.message),
            std::make_tuple(ResultCode::NoDevicesFound, why, ResultCode::NoDevicesFound, why));
  EXPECT_EQ(Sums(none), "- -\nGPU memory: " + why + "\nGPU memory: " + why + "\n");
  const auto gpu = [](Bytes free, const char* error) {
    return platform::GpuReading{"B", "NVML", {}, {}, "", 1ull << 63, free, error, {}};
  };
  EXPECT_EQ(Sums({{gpu(1, ""), gpu(std::nullopt, "used: EISDIR")}, {}}),
            "- -\nGPU memory: the GPUs' figures add up past 64 bits\n"
            "GPU memory: B (GPU 1): used: EISDIR\n");
}

struct NvmlRow {
  const char* name;
  const char* library;
  const char* script;
  const char* expected;
};
// B's memory fails: the entry point named is the one that was asked.
constexpr const char* kOneLost = "gpu|A|8|7\ngpu|B|8|7|||0|15\n";
constexpr const char* kAskedFirst = "A 8/7\nB -/- nvmlDeviceGetMemoryInfo: GPU is lost\n";

const NvmlRow kNvmlRows[] = {
    {"without_v2_entry_point", VEMORA_FAKE_NVML_WITHOUT_V2, kOneLost, kAskedFirst},
    {"v2_not_supported", VEMORA_FAKE_NVML, "v2|3\ngpu|A|8|7\ngpu|B|8|7|||0|15\n", kAskedFirst},
    {"handle_lost", VEMORA_FAKE_NVML, "gpu|A|8|7|||15\n",
     "NVIDIA GPU 0 -/- nvmlDeviceGetHandleByIndex_v2: GPU is lost\n"},
    {"count_fails", VEMORA_FAKE_NVML, "count|999\ngpu|A|8|7\n",
     "failed: NVML could not count its GPUs (nvmlDeviceGetCount_v2: Unknown Error)\n"},
    {"no_gpu", VEMORA_FAKE_NVML, "", "note: NVML lists no GPU\n"},
    {"not_installed", "/nonexistent/libnvidia-ml.so.1", "",
     "note: NVML could not be loaded (/nonexistent/libnvidia-ml.so.1: cannot open shared object "
     "file: No such file or directory)\n"},
    {"not_nvml", "libm.so.6", "", "failed: libm.so.6 lacks NVML's entry points\n"},
};

TEST(Nvml, WhatItLists) {
  for (const NvmlRow& row : kNvmlRows) {
    // Scripted, and kept loaded so that the session under test finds this copy.
    const std::unique_ptr<void, int (*)(void*)> fake(dlopen(row.library, RTLD_NOW), dlclose);
    if (auto set = fake ? dlsym(fake.get(), "vemora_fake_nvml_script") : nullptr)
      reinterpret_cast<void (*)(const char*)>(set)(row.script);
    GpuList list;
    platform::Nvml(row.library).Read(&list, false);
    EXPECT_EQ(Show(list), row.expected) << row.name;
  }
}

struct TreeRow {
  const char* name;
  const char* tree;
  bool describe;
  const char* expected;
};
const TreeRow kTrees[] = {
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

TEST(Amdgpu, WhatTheTreesList) {
  for (const TreeRow& row : kTrees) {
    const std::string root = VEMORA_FIXTURES "/machines/" + std::string(row.tree);
    GpuList list;
    platform::linux_gpus::ReadAmdgpu(root.c_str(), &list, row.describe);
    EXPECT_EQ(Show(list, row.describe), row.expected) << row.name;
  }
}

// What the trees and the fuzz target's properties leave out.
TEST(AmdgpuTexts, Parse) {
  const auto uevent = text::ParsePciUevent("DRIVER=amdgpu\nPCI_ID=1002:73BF\r\nPCI_SLOT_NAME=x");
  EXPECT_EQ(std::tie(uevent.driver, uevent.pci_id, uevent.slot),
            std::make_tuple("amdgpu", "1002:73BF", "x"));
  EXPECT_EQ(text::ParseCount("18446744073709551616\n"), std::nullopt);
  EXPECT_EQ(text::ParseHexId("1g"), std::nullopt);
  EXPECT_EQ(text::ParseHexId("100000000"), std::nullopt);
  EXPECT_FALSE(text::IsDrmCard("card0-DP-1"));
  // The first of duplicate rows wins, as in libdrm; a row without a name is skipped.
  constexpr std::string_view kIds =
      "# comment, with commas\n1.0.0\n15D8,\t91,\t\n15D8,\t91,\tVega 3\n15D8, 91, Embedded\n";
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x15d8, 0x91), "Vega 3");
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x15d8, 0x90), std::nullopt);
}

}  // namespace
