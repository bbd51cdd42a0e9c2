// The GPU facts of Linux: the list logic on hand-built readings, NVML on the
// test NVML (test/fakes/nvml), amdgpu on the machine trees, and the parsers.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/gpu_list.h"
#include "platform/linux/linux_gpus.h"
#include "platform/linux/proc_text.h"
#include "platform/nvml.h"

namespace {

namespace platform = vemora::platform;
namespace text = vemora::platform::linux_text;
using platform::GpuList;
using platform::GpuReading;
using vemora::system::GpuIntegrationTypeToStr;
using vemora::system::ResultCodeToStr;

constexpr auto ByName = [](const auto& row) { return std::string(row.param.name); };

std::string Bytes(const std::optional<std::uint64_t>& bytes) {
  return bytes ? std::to_string(*bytes) : "-";
}

// One line per GPU ("name total/free why"), then one per note.
std::string Show(const GpuList& list) {
  std::string out;
  for (const auto& gpu : list.gpus) {
    out += gpu.name + " " + Bytes(gpu.total_bytes) + "/" + Bytes(gpu.free_bytes) +
           (gpu.memory_error.empty() ? "" : " " + gpu.memory_error) + "\n";
  }
  for (const auto& note : list.notes)
    out += (note.failed ? "failed: " : "note: ") + note.text + "\n";
  return out;
}

// The facts the survey adds: "Discrete CUDA 12.4 | driverVersion=... pciBusId=...".
std::string Facts(const GpuReading& gpu) {
  const std::map<std::string, std::string> sorted(gpu.other_info.begin(), gpu.other_info.end());
  std::string out = GpuIntegrationTypeToStr(gpu.integration) + " " +
                    vemora::system::GpuDetectionPlatformToStr(gpu.platform) + " " +
                    gpu.platform_version + " |";
  for (const auto& [key, value] : sorted) out += " " + key + "=" + value;
  return out;
}

std::string Captured(const std::function<void()>& run) {
  ::testing::internal::CaptureStderr();
  run();
  return ::testing::internal::GetCapturedStderr();
}

// ---- The list: survey, per-device report and sums ----------------------------------------

GpuReading Gpu(const char* name, const char* source, std::optional<std::uint64_t> total,
               std::optional<std::uint64_t> free, const char* why = "") {
  GpuReading gpu;
  gpu.name = name;
  gpu.source = source;
  gpu.total_bytes = total;
  gpu.free_bytes = free;
  gpu.memory_error = why;
  return gpu;
}

struct ListRow {
  const char* name;
  GpuList list;
  const char* survey;  // code: message | each GPU's total
  const char* report;  // code: message | each device: code message total free
  const char* sums;    // total free, and what the failed sums wrote
};
class GpuListOf : public ::testing::TestWithParam<ListRow> {};

TEST_P(GpuListOf, SurveyReportAndSums) {
  const ListRow& row = GetParam();
  const auto [found, gpus] = platform::SurveyOf(row.list);
  std::string survey = ResultCodeToStr(found.code) + ": " + found.message + " |";
  for (const auto& gpu : gpus) {
    survey += " " + std::to_string(gpu.deviceId) + ":" +
              std::to_string(gpu.totalMemoryCapacityBytes) + "=" +
              std::to_string(gpu.dedicatedMemoryCapacityBytes);
  }
  EXPECT_EQ(survey, row.survey);
  const auto [overall, devices] = platform::LiveMemoryOf(row.list);
  std::string report = ResultCodeToStr(overall.code) + ": " + overall.message + " |";
  for (const auto& d : devices) {
    report += " " + std::to_string(*d.deviceId) + " " + *d.name + " " +
              ResultCodeToStr(d.result.code) + " " + d.result.message + " " +
              Bytes(d.totalVramBytes) + " " + Bytes(d.freeVramBytes) + ";";
  }
  EXPECT_EQ(report, row.report);
  std::string sums;
  const std::string lines = Captured([&] {
    const auto total = platform::TotalBytesOf(row.list);
    const auto free = platform::FreeBytesOf(row.list);
    sums = (total.ok() ? std::to_string(total.value) : "-") + " " +
           (free.ok() ? std::to_string(free.value) : "-") + "\n";
  });
  EXPECT_EQ(sums + lines, row.sums);
}

const ListRow kLists[] = {
    {"no_gpu",
     {{}, {{"NVML could not be loaded (x)", false}, {"no card in /sys/class/drm", false}}},
     "NoDevicesFound: No GPU found: NVML could not be loaded (x); no card in /sys/class/drm. |",
     "NoDevicesFound: No GPU found: NVML could not be loaded (x); no card in /sys/class/drm. |",
     "- -\n"
     "GPU memory: No GPU found: NVML could not be loaded (x); no card in /sys/class/drm.\n"
     "GPU memory: No GPU found: NVML could not be loaded (x); no card in /sys/class/drm.\n"},
    {"two_sources_and_a_failed_one",
     {{Gpu("H100", "NVML", 80, 60), Gpu("RX", "amdgpu", 16, 15), Gpu("A100", "NVML", 40, 1)},
      {{"NVML could not count", true}, {"no card", false}}},
     "Success: Found 3 GPUs: 2 through NVML, 1 through amdgpu. Also: NVML could not count. | "
     "0:80=80 1:16=16 2:40=40",
     "Success: Read the memory of 3 GPUs. | 0 H100 Success  80 60; 1 RX Success  16 15; "
     "2 A100 Success  40 1;",
     "136 76\n"},
    {"free_unread",
     {{Gpu("RX", "amdgpu", 16, std::nullopt, "used: EISDIR")}, {}},
     "Success: Found 1 GPU through amdgpu. | 0:16=16",
     "Success: Read the memory of 0 of 1 GPU; each device says why. | "
     "0 RX Error used: EISDIR 16 -;",
     "16 -\nGPU memory: RX (GPU 0): used: EISDIR\n"},
    {"total_unread_and_past_64_bits",
     {{Gpu("H100", "NVML", 1ull << 63, 1ull << 63), Gpu("H200", "NVML", 1ull << 63, 0),
       Gpu("lost", "NVML", std::nullopt, std::nullopt, "lost")},
      {}},
     "Success: Found 3 GPUs through NVML. | 0:9223372036854775808=9223372036854775808 "
     "1:9223372036854775808=9223372036854775808 2:18446744073709551615=18446744073709551615",
     "Success: Read the memory of 2 of 3 GPUs; each device says why. | "
     "0 H100 Success  9223372036854775808 9223372036854775808; "
     "1 H200 Success  9223372036854775808 0; 2 lost Error lost - -;",
     "- -\nGPU memory: the GPUs' figures add up past 64 bits\nGPU memory: lost (GPU 2): lost\n"},
};
INSTANTIATE_TEST_SUITE_P(Rows, GpuListOf, ::testing::ValuesIn(kLists), ByName);

// ---- NVML on the test NVML ---------------------------------------------------------------

// Scripts the test NVML at `library`, kept loaded so that the session under
// test finds the same copy.
class FakeNvml {
 public:
  FakeNvml(const char* library, const char* script) : handle_(dlopen(library, RTLD_NOW)) {
    auto set = reinterpret_cast<void (*)(const char*)>(
        handle_ != nullptr ? dlsym(handle_, "vemora_fake_nvml_script") : nullptr);
    if (set != nullptr) set(script);
  }
  ~FakeNvml() {
    if (handle_ != nullptr) dlclose(handle_);
  }

 private:
  void* handle_;
};

constexpr const char* kTwoGpus =
    "driver|580.65.06\ncuda|12040\n"
    "gpu|NVIDIA H100 80GB HBM3|85520809984|84900000000,84000000000|00000000:65:00.0|233010DE\n"
    "gpu|NVIDIA GeForce RTX 4090|25757220864|25000000000|00000000:B3:00.0|268410DE\n";

struct NvmlRow {
  const char* name;
  const char* library;
  const char* script;
  const char* expected;
};
class NvmlReads : public ::testing::TestWithParam<NvmlRow> {};

TEST_P(NvmlReads, WhatItLists) {
  const NvmlRow& row = GetParam();
  FakeNvml fake(row.library, row.script);
  const platform::Nvml nvml(row.library);
  GpuList list;
  nvml.Read(&list, false);
  EXPECT_EQ(Show(list), row.expected);
}

const NvmlRow kNvmlRows[] = {
    {"two_gpus", VEMORA_FAKE_NVML, kTwoGpus,
     "NVIDIA H100 80GB HBM3 85520809984/84900000000\n"
     "NVIDIA GeForce RTX 4090 25757220864/25000000000\n"},
    {"without_v2_entry_point", VEMORA_FAKE_NVML_WITHOUT_V2, kTwoGpus,
     "NVIDIA H100 80GB HBM3 85520809984/84900000000\n"
     "NVIDIA GeForce RTX 4090 25757220864/25000000000\n"},
    // The first call answers for both: the lost GPU was asked through the first entry point.
    {"v2_not_supported_falls_back", VEMORA_FAKE_NVML, "v2|3\ngpu|A|8|7\ngpu|B|8|7|||0|15\n",
     "A 8/7\nB -/- nvmlDeviceGetMemoryInfo: GPU is lost\n"},
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

// Versions and PCI facts for the survey, and memory asked afresh on every read.
TEST(Nvml, DescribesAndAsksAgain) {
  FakeNvml fake(VEMORA_FAKE_NVML, kTwoGpus);
  const platform::Nvml nvml(VEMORA_FAKE_NVML);
  GpuList first, second;
  nvml.Read(&first, true);
  nvml.Read(&second, true);
  ASSERT_EQ(first.gpus.size(), 2u);
  EXPECT_EQ(Facts(first.gpus[0]),
            "Discrete CUDA 12.4 | driverVersion=580.65.06 pciBusId=00000000:65:00.0 "
            "pciDeviceId=10DE:2330 uuid=GPU-fa4e0000-0000-0000-0000-000000000000");
  EXPECT_EQ(Show(second).substr(0, 46), "NVIDIA H100 80GB HBM3 85520809984/84000000000\n");
}

// ---- amdgpu on the machine trees ---------------------------------------------------------

struct TreeRow {
  const char* tree;
  bool describe;
  const char* expected;  // Show, then each GPU's Facts when described
};
class AmdgpuTree : public ::testing::TestWithParam<TreeRow> {};

TEST_P(AmdgpuTree, Reads) {
  const std::string root = VEMORA_FIXTURES "/machines/" + std::string(GetParam().tree);
  GpuList list;
  platform::linux_gpus::ReadAmdgpu(root.c_str(), &list, GetParam().describe);
  std::string shown = Show(list);
  for (const auto& gpu : list.gpus) shown += GetParam().describe ? Facts(gpu) + "\n" : "";
  EXPECT_EQ(shown, GetParam().expected);
}

const TreeRow kTrees[] = {
    {"amdgpu-discrete-handmade", true,
     "AMD Radeon RX 6800 XT 17163091968/16760438784\n"
     "Discrete ROCm 6.10.5 | driverVersion=6.10.5 pciBusId=0000:03:00.0 pciDeviceId=1002:73BF\n"},
    {"amdgpu-discrete-handmade", false, "AMD GPU 1002:73BF 17163091968/16760438784\n"},
    {"amdgpu-apu-handmade", true,
     "AMD Radeon Vega 11 Graphics 536870912/434110464\n"
     "Integrated ROCm  | pciBusId=0000:0a:00.0 pciDeviceId=1002:15DD\n"},
    // In PCI slot order, not card order.
    {"amdgpu-memory-unreadable-handmade", true,
     "AMD GPU 1002:73BF 17163091968/- /sys/class/drm/card1/device/mem_info_vram_used: Is a "
     "directory\n"
     "AMD Instinct MI210 -/- /sys/class/drm/card0/device/mem_info_vram_total: No such file or "
     "directory\n"
     "Discrete ROCm  | pciBusId=0000:03:00.0 pciDeviceId=1002:73BF\n"
     "Unknown ROCm  | pciBusId=0000:0b:00.0 pciDeviceId=1002:740F\n"},
    {"nouveau-handmade", true,
     "note: no card in /sys/class/drm is driven by amdgpu (card0: nouveau)\n"},
    {"debian12-x86_64-vm", true,
     "note: no card in /sys/class/drm is driven by amdgpu (/sys/class/drm: No such file or "
     "directory)\n"},
};
INSTANTIATE_TEST_SUITE_P(Trees, AmdgpuTree, ::testing::ValuesIn(kTrees), [](const auto& row) {
  std::string name = std::string(row.param.tree) + (row.param.describe ? "" : "_memory_only");
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

// ---- The parsers -------------------------------------------------------------------------

TEST(AmdgpuTexts, Parse) {
  const auto uevent = text::ParsePciUevent("DRIVER=amdgpu\nPCI_ID=1002:73BF\r\nPCI_SLOT_NAME=x");
  EXPECT_EQ(std::string(uevent.driver) + "|" + std::string(uevent.pci_id) + "|" +
                std::string(uevent.slot),
            "amdgpu|1002:73BF|x");
  EXPECT_EQ(text::ParsePciUevent("PCI_ID=1\nMODALIAS=x=y\n").driver, "");
  const std::pair<const char*, std::optional<std::uint64_t>> counts[] = {
      {"17163091968\n", 17163091968u},
      {"0", 0u},
      {"18446744073709551616\n", std::nullopt},
      {"-1\n", std::nullopt},
      {"12 kB\n", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [attribute, expected] : counts) EXPECT_EQ(text::ParseCount(attribute), expected);
  const std::pair<const char*, std::optional<std::uint32_t>> hex[] = {{"0xc1\n", 0xc1u},
                                                                      {"73BF", 0x73bfu},
                                                                      {"0x", std::nullopt},
                                                                      {"1g", std::nullopt},
                                                                      {"100000000", std::nullopt}};
  for (const auto& [id, expected] : hex) EXPECT_EQ(text::ParseHexId(id), expected) << id;
  EXPECT_TRUE(text::IsDrmCard("card12"));
  for (const char* other : {"card", "card0-DP-1", "renderD128", "xcard0"}) {
    EXPECT_FALSE(text::IsDrmCard(other)) << other;
  }
  // The first of duplicate rows wins, as in libdrm; a row without a name is skipped.
  constexpr std::string_view kIds =
      "# comment, with commas\n1.0.0\n15D8,\t91,\t\n15D8,\t91,\tVega 3\n15D8, 91, Embedded\n"
      "73BF,\tC1,\tAMD Radeon RX 6800 XT";
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x15d8, 0x91), "Vega 3");
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x73bf, 0xc1), "AMD Radeon RX 6800 XT");
  EXPECT_EQ(text::AmdgpuIdsName(kIds, 0x73bf, 0xc0), std::nullopt);
}

}  // namespace
