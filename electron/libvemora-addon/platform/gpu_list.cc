#include "platform/gpu_list.h"

#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include "platform/diagnostics.h"

namespace vemora::platform {
namespace {

using system::Result;
using system::ResultCode;

std::string Plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// "NVML could not be loaded (...); no card in /sys/class/drm is driven by amdgpu"
std::string JoinNotes(const GpuList& list, bool failures_only) {
  std::string text;
  for (const auto& note : list.notes) {
    if (failures_only && !note.failed) continue;
    if (!text.empty()) text += "; ";
    text += note.text;
  }
  return text;
}

std::string NoGpuMessage(const GpuList& list) {
  const std::string notes = JoinNotes(list, false);
  return notes.empty() ? "No GPU found." : "No GPU found: " + notes + ".";
}

// "Found 2 GPUs: 1 through NVML, 1 through amdgpu." plus what failed.
std::string FoundMessage(const GpuList& list) {
  std::vector<std::pair<std::string, std::size_t>> by_source;
  for (const auto& gpu : list.gpus) {
    auto it = by_source.begin();
    while (it != by_source.end() && it->first != gpu.source) ++it;
    if (it == by_source.end()) it = by_source.insert(it, {gpu.source, 0});
    ++it->second;
  }
  std::string text = "Found " + Plural(list.gpus.size(), "GPU");
  if (by_source.size() == 1) {
    text += " through " + by_source.front().first;
  } else {
    for (std::size_t i = 0; i < by_source.size(); ++i) {
      text += (i == 0 ? ": " : ", ") + std::to_string(by_source[i].second) + " through " +
              by_source[i].first;
    }
  }
  const std::string failures = JoinNotes(list, true);
  return text + "." + (failures.empty() ? "" : " Also: " + failures + ".");
}

// "NVIDIA H100 (GPU 1)": the name and the deviceId the survey gives it.
std::string Label(const GpuList& list, std::size_t index) {
  return list.gpus[index].name + " (GPU " + std::to_string(index) + ")";
}

Reading<std::uint64_t> Sum(const GpuList& list, std::optional<std::uint64_t> GpuReading::*figure) {
  if (list.gpus.empty()) {
    WriteLine("GPU memory: " + NoGpuMessage(list));
    return Failure<std::uint64_t>(ENODEV);
  }
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < list.gpus.size(); ++i) {
    const auto& bytes = list.gpus[i].*figure;
    if (!bytes) {
      WriteLine("GPU memory: " + Label(list, i) + ": " + list.gpus[i].memory_error);
      return Failure<std::uint64_t>(EIO);
    }
    if (*bytes > std::numeric_limits<std::uint64_t>::max() - sum) {
      WriteLine("GPU memory: the GPUs' figures add up past 64 bits");
      return Failure<std::uint64_t>(EOVERFLOW);
    }
    sum += *bytes;
  }
  return Value(sum);
}

}  // namespace

system::GpuSurveyResult SurveyOf(const GpuList& list) {
  if (list.gpus.empty()) return {Result{ResultCode::NoDevicesFound, NoGpuMessage(list)}, {}};
  constexpr std::uint64_t kUnread = std::numeric_limits<std::uint64_t>::max();
  std::vector<system::GpuInfo> gpus;
  gpus.reserve(list.gpus.size());
  for (const auto& reading : list.gpus) {
    system::GpuInfo gpu;
    gpu.name = reading.name;
    gpu.deviceId = static_cast<std::int32_t>(gpus.size());
    // Both are the GPU's own memory: nothing else is reserved for it.
    gpu.totalMemoryCapacityBytes = reading.total_bytes.value_or(kUnread);
    gpu.dedicatedMemoryCapacityBytes = gpu.totalMemoryCapacityBytes;
    gpu.integrationType = reading.integration;
    gpu.detectionPlatform = reading.platform;
    gpu.detectionPlatformVersion = reading.platform_version;
    gpu.otherInfo = reading.other_info;
    gpus.push_back(std::move(gpu));
  }
  return {Result{ResultCode::Success, FoundMessage(list)}, std::move(gpus)};
}

system::GpuLiveMemoryReport LiveMemoryOf(const GpuList& list) {
  if (list.gpus.empty()) return {Result{ResultCode::NoDevicesFound, NoGpuMessage(list)}, {}};
  std::vector<system::GpuLiveMemoryResult> devices;
  devices.reserve(list.gpus.size());
  std::size_t read = 0;
  for (const auto& reading : list.gpus) {
    system::GpuLiveMemoryResult device;
    const bool complete = reading.total_bytes && reading.free_bytes;
    read += complete;
    device.result = complete ? Result{ResultCode::Success, ""}
                             : Result{ResultCode::Error, reading.memory_error};
    device.name = reading.name;
    device.deviceId = static_cast<std::int32_t>(devices.size());
    device.totalVramBytes = reading.total_bytes;
    device.freeVramBytes = reading.free_bytes;
    devices.push_back(std::move(device));
  }
  std::string message = read == devices.size()
                            ? "Read the memory of " + Plural(read, "GPU") + "."
                            : "Read the memory of " + std::to_string(read) + " of " +
                                  Plural(devices.size(), "GPU") + "; each device says why.";
  return {Result{ResultCode::Success, std::move(message)}, std::move(devices)};
}

Reading<std::uint64_t> TotalBytesOf(const GpuList& list) {
  return Sum(list, &GpuReading::total_bytes);
}

Reading<std::uint64_t> FreeBytesOf(const GpuList& list) {
  return Sum(list, &GpuReading::free_bytes);
}

void JoinNvml(const GpuList& nvml, GpuList* gpus) {
  constexpr std::uint32_t kNvidia = 0x10DE;
  std::vector<bool> taken(nvml.gpus.size(), false);
  for (auto& gpu : gpus->gpus) {
    if ((gpu.pci_device_id & 0xFFFFu) != kNvidia) continue;
    std::size_t i = 0;
    while (i < nvml.gpus.size() && (taken[i] || nvml.gpus[i].pci_device_id != gpu.pci_device_id ||
                                    nvml.gpus[i].pci_subsystem_id != gpu.pci_subsystem_id)) {
      ++i;
    }
    if (i == nvml.gpus.size()) {
      // Its own memory stays as the other source read it; nothing is free.
      gpu.free_bytes.reset();
      char ids[64];
      std::snprintf(ids, sizeof ids, "NVML lists no GPU of PCI id %04X:%04X",
                    gpu.pci_device_id & 0xFFFFu, gpu.pci_device_id >> 16);
      gpu.memory_error = nvml.gpus.empty() ? JoinNotes(nvml, false) : ids;
      continue;
    }
    taken[i] = true;
    const GpuReading& same = nvml.gpus[i];
    if (same.total_bytes) gpu.total_bytes = same.total_bytes;
    gpu.free_bytes = same.free_bytes;
    gpu.memory_error = same.memory_error;
    for (const auto& fact : same.other_info) gpu.other_info.insert(fact);
  }
  for (const auto& note : nvml.notes) {
    if (note.failed) gpus->notes.push_back(note);
  }
}

}  // namespace vemora::platform
