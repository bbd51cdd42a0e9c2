// The GPUs as DXGI lists them, one reading per hardware adapter, and what the
// GPU facts make of such a list: the survey, the per-device report and the
// sums. The list logic does no I/O, so the tests feed it lists.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/platform.h"
#include "system/survey_types.h"

namespace vemora::platform::windows_gpu {

struct GpuReading {
  std::string name;
  system::GpuIntegrationType integration = system::GpuIntegrationType::Unknown;
  system::GpuDetectionPlatform platform = system::GpuDetectionPlatform::Unknown;
  // The GPU's own memory (DedicatedVideoMemory), and all it may address: its
  // own memory and the system memory set aside for it or shared with it.
  std::uint64_t dedicated_bytes = 0;
  std::uint64_t total_bytes = 0;
  // Free memory of the whole device, where a source gives it.
  std::optional<std::uint64_t> free_bytes;
  std::unordered_map<std::string, std::string> other_info;
};

// The list, or why there is none: result is Success with a list (empty when
// there is no hardware adapter) or the failure, its message naming the call.
struct GpuReadings {
  system::Result result;
  std::vector<GpuReading> gpus;
};

// Every hardware adapter once, in DXGI's order: the Basic Render Driver and
// a second entry with the same LUID are left out. DXGI gives no free figure:
// QueryVideoMemoryInfo is a budget for the calling process, not the device's.
GpuReadings ReadDxgiAdapters();

// Integrated or discrete from the PCI vendor and the dedicated memory.
system::GpuIntegrationType ClassifyAdapter(std::uint32_t vendor_id,
                                           std::uint64_t dedicated_video_bytes);

system::GpuSurveyResult SurveyOf(const GpuReadings& readings);
system::GpuLiveMemoryReport ReportOf(const GpuReadings& readings);

// The dedicated memory summed over the GPUs, and the free memory summed over
// those that report it. A failure carries the line the fact writes.
struct Sum {
  std::optional<std::uint64_t> bytes;
  std::string diagnostic;
};
Sum DedicatedSum(const GpuReadings& readings);
Sum FreeSum(const GpuReadings& readings);

}  // namespace vemora::platform::windows_gpu
