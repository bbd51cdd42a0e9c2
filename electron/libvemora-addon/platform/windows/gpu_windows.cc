// The GPU facts on Windows: the adapters DXGI lists (dxgi_adapters.cc), each
// asked afresh at every call.
#include "platform/diagnostics.h"
#include "platform/platform.h"
#include "platform/windows/gpu_readings.h"

namespace vemora::platform {
namespace {

Reading<std::uint64_t> Written(const windows_gpu::Sum& sum) {
  if (sum.bytes) return Value(*sum.bytes);
  vemora_utils::write_raw(sum.diagnostic.c_str());
  return Failure<std::uint64_t>(-1);
}

}  // namespace

Reading<std::uint64_t> gpu_memory_bytes() {
  return Written(windows_gpu::DedicatedSum(windows_gpu::ReadDxgiAdapters()));
}

Reading<std::uint64_t> gpu_available_memory_bytes() {
  return Written(windows_gpu::FreeSum(windows_gpu::ReadDxgiAdapters()));
}

system::GpuLiveMemoryReport gpu_memory_by_device() {
  return windows_gpu::ReportOf(windows_gpu::ReadDxgiAdapters());
}

system::GpuSurveyResult survey_gpus() {
  return windows_gpu::SurveyOf(windows_gpu::ReadDxgiAdapters());
}

}  // namespace vemora::platform
