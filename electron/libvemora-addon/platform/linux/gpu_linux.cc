// The GPU facts on Linux. No GPU source is read yet: every figure fails with
// one line that says so.
#include "platform/diagnostics.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kNoSource = "GPU memory: no GPU source is read on Linux yet\n";

}  // namespace

Reading<std::uint64_t> gpu_memory_bytes() {
  vemora_utils::write_raw(kNoSource);
  return Failure<std::uint64_t>(-1);
}

Reading<std::uint64_t> gpu_available_memory_bytes() { return gpu_memory_bytes(); }

system::GpuLiveMemoryReport gpu_memory_by_device() {
  return {system::Result{system::ResultCode::Error, "Not implemented"}, {}};
}

system::GpuSurveyResult survey_gpus() {
  return {system::Result{system::ResultCode::NoDevicesFound, "No GPU source is read on Linux yet"},
          {}};
}

}  // namespace vemora::platform
