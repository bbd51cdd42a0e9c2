// The GPU facts on Windows: the adapters DXGI lists (dxgi_adapters.cc), asked
// afresh at every call, and NVIDIA's device-wide memory through NVML
// (nvml.dll, loaded with LoadLibraryExW).
#include "platform/gpu_list.h"
#include "platform/nvml.h"
#include "platform/platform.h"
#include "platform/windows/gpu_readings.h"

namespace vemora::platform {
namespace {

// Loaded and started once per process, on first need, by whichever thread
// comes first (a function-local static's initialisation is thread-safe):
// starting NVML opens the driver, the one costly step. Never shut down, so
// that no thread still asking at exit finds it gone.
const Nvml& SharedNvml() {
  static const Nvml* const nvml = new Nvml("nvml.dll");
  return *nvml;
}

GpuList ReadGpus(bool describe) {
  GpuList list = windows_gpu::ReadDxgiAdapters();
  for (const GpuReading& gpu : list.gpus) {
    if ((gpu.pci_device_id & 0xFFFFu) == 0x10DE) {
      GpuList nvml;
      SharedNvml().Read(&nvml, describe);
      JoinNvml(nvml, &list);
      break;
    }
  }
  return list;
}

}  // namespace

Reading<std::uint64_t> gpu_memory_bytes() { return TotalBytesOf(ReadGpus(false)); }

Reading<std::uint64_t> gpu_available_memory_bytes() { return FreeBytesOf(ReadGpus(false)); }

system::GpuLiveMemoryReport gpu_memory_by_device() { return LiveMemoryOf(ReadGpus(true)); }

system::GpuSurveyResult survey_gpus() { return SurveyOf(ReadGpus(true)); }

}  // namespace vemora::platform
