// The GPU facts of machines whose GPUs have memory of their own, built from
// what each GPU source read (NVML, amdgpu's sysfs files, DXGI): the survey,
// the per-device report and the two sums, with their messages. No OS header:
// every OS that reads GPUs this way shares it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/platform.h"
#include "system/survey_types.h"

namespace vemora::platform {

// One GPU as a source read it.
struct GpuReading {
  std::string name;
  // The interface that found it, as the messages name it ("NVML", "amdgpu").
  std::string source;
  system::GpuIntegrationType integration = system::GpuIntegrationType::Discrete;
  system::GpuDetectionPlatform platform = system::GpuDetectionPlatform::Unknown;
  std::string platform_version;
  // Its own memory and the part free now; each absent when it could not be
  // read, and then memory_error says why ("nvmlDeviceGetMemoryInfo: GPU is lost").
  std::optional<std::uint64_t> total_bytes;
  std::optional<std::uint64_t> free_bytes;
  std::string memory_error;
  std::unordered_map<std::string, std::string> other_info;
  // PCI ids as NVML's nvmlPciInfo_t holds them, the device's in the high half
  // and its vendor's in the low (0x268410DE); 0 when unknown. They tell which
  // GPU of one source is which of another.
  std::uint32_t pci_device_id = 0;
  std::uint32_t pci_subsystem_id = 0;
};

// What every source found, in list order, and what the sources said when they
// found nothing or failed ("NVML could not start (nvmlInit_v2: Driver Not
// Loaded)"); `failed` tells a failure from a source that is simply not there.
struct GpuList {
  struct Note {
    std::string text;
    bool failed = false;
  };
  std::vector<GpuReading> gpus;
  std::vector<Note> notes;
};

// Success with every GPU (deviceId is its index in the list), or
// NoDevicesFound naming what was tried. A figure that could not be read is
// stored as all 64 bits set, as the other surveys store a failed figure.
system::GpuSurveyResult SurveyOf(const GpuList& list);

// One element per GPU, each with its own status and the fields that were
// read; NoDevicesFound and no element when there is no GPU.
system::GpuLiveMemoryReport LiveMemoryOf(const GpuList& list);

// The GPUs' total or free memory summed. Fails, after one diagnostic line,
// when there is no GPU or when one GPU's figure could not be read: a sum
// without it would promise memory nobody can count on.
Reading<std::uint64_t> TotalBytesOf(const GpuList& list);
Reading<std::uint64_t> FreeBytesOf(const GpuList& list);

// Gives each NVIDIA GPU of `gpus` (vendor 0x10DE) the memory figures of the
// GPU of `nvml` that is the same card: the same PCI device and subsystem ids,
// and among identical cards the same rank in order, as both sources list
// them by bus. Each of `nvml`'s GPUs is taken at most once; an NVIDIA GPU
// left without one says why in memory_error (`nvml`'s notes when it has no
// GPU), and keeps its own memory. The other GPUs are left as they are;
// `nvml`'s failures join `gpus`' notes.
void JoinNvml(const GpuList& nvml, GpuList* gpus);

}  // namespace vemora::platform
