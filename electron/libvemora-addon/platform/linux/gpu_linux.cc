// The GPU facts on Linux: NVIDIA's GPUs through NVML, loaded with dlopen(3),
// and AMD's through the amdgpu driver's sysfs files, read on every call.
#include "platform/gpu_list.h"
#include "platform/linux/linux_gpus.h"
#include "platform/nvml.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

// Loaded and started once per process, on first use, by whichever thread
// comes first (a function-local static's initialisation is thread-safe):
// starting NVML opens the driver, the one costly step. Never shut down, so
// that no thread still asking at exit finds it gone; NVML's own figures are
// asked afresh on every call.
const Nvml& SharedNvml() {
  static const Nvml* const nvml = new Nvml(linux_gpus::kNvmlLibrary);
  return *nvml;
}

GpuList ReadGpus(bool describe) {
  return linux_gpus::ReadGpus(SharedNvml(), linux_gpus::kRoot, describe);
}

}  // namespace

Reading<std::uint64_t> gpu_memory_bytes() { return TotalBytesOf(ReadGpus(false)); }

Reading<std::uint64_t> gpu_available_memory_bytes() { return FreeBytesOf(ReadGpus(false)); }

system::GpuLiveMemoryReport gpu_memory_by_device() { return LiveMemoryOf(ReadGpus(true)); }

system::GpuSurveyResult survey_gpus() { return SurveyOf(ReadGpus(true)); }

}  // namespace vemora::platform
