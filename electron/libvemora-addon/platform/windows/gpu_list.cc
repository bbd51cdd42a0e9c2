// The survey, the per-device report and the sums, made from a list of GPU
// readings; no OS calls.
#include <utility>

#include "platform/windows/gpu_readings.h"

namespace vemora::platform::windows_gpu {
namespace {

using system::Result;
using system::ResultCode;

constexpr const char* kNoAdapter = "DXGI lists no hardware adapter";
constexpr const char* kNoFreeFigure = "DXGI gives no device-wide free memory for this GPU";

// Why there is nothing to sum or list: the failure, or no GPU at all.
std::optional<Result> Nothing(const GpuReadings& readings) {
  if (readings.result.code != ResultCode::Success) return readings.result;
  if (readings.gpus.empty()) return Result{ResultCode::NoDevicesFound, kNoAdapter};
  return std::nullopt;
}

Sum Failed(const Result& why) { return Sum{std::nullopt, why.message + "\n"}; }

}  // namespace

system::GpuSurveyResult SurveyOf(const GpuReadings& readings) {
  if (auto why = Nothing(readings)) return {std::move(*why), {}};
  std::vector<system::GpuInfo> gpus;
  for (const GpuReading& reading : readings.gpus) {
    system::GpuInfo gpu;
    gpu.name = reading.name;
    gpu.deviceId = static_cast<std::int32_t>(gpus.size());
    gpu.totalMemoryCapacityBytes = reading.total_bytes;
    gpu.dedicatedMemoryCapacityBytes = reading.dedicated_bytes;
    gpu.integrationType = reading.integration;
    gpu.detectionPlatform = reading.platform;
    gpu.otherInfo = reading.other_info;
    gpus.push_back(std::move(gpu));
  }
  return {Result{ResultCode::Success, "Successfully queried DXGI for GPU Info."}, std::move(gpus)};
}

system::GpuLiveMemoryReport ReportOf(const GpuReadings& readings) {
  if (auto why = Nothing(readings)) return {std::move(*why), {}};
  std::vector<system::GpuLiveMemoryResult> devices;
  for (const GpuReading& reading : readings.gpus) {
    system::GpuLiveMemoryResult device;
    device.result = reading.free_bytes ? Result{ResultCode::Success, ""}
                                       : Result{ResultCode::FunctionNotAvailable, kNoFreeFigure};
    device.name = reading.name;
    device.deviceId = static_cast<std::int32_t>(devices.size());
    device.totalVramBytes = reading.dedicated_bytes;
    device.freeVramBytes = reading.free_bytes;
    devices.push_back(std::move(device));
  }
  return {Result{ResultCode::Success, "Successfully queried DXGI for GPU memory."},
          std::move(devices)};
}

Sum DedicatedSum(const GpuReadings& readings) {
  if (auto why = Nothing(readings)) return Failed(*why);
  std::uint64_t bytes = 0;
  for (const GpuReading& reading : readings.gpus) bytes += reading.dedicated_bytes;
  return Sum{bytes, ""};
}

Sum FreeSum(const GpuReadings& readings) {
  if (auto why = Nothing(readings)) return Failed(*why);
  std::optional<std::uint64_t> bytes;
  for (const GpuReading& reading : readings.gpus) {
    if (reading.free_bytes) bytes = bytes.value_or(0) + *reading.free_bytes;
  }
  if (!bytes) return Sum{std::nullopt, "DXGI: no GPU reports its device-wide free memory\n"};
  return Sum{bytes, ""};
}

}  // namespace vemora::platform::windows_gpu
