#include "system/gpu_survey.h"

#include <algorithm>

#include "memory/memory_observer.h"
#include "platform/platform.h"
#include "platform/scoped_object.h"

namespace vemora::system {
namespace {

constexpr std::int32_t kCpuTypeArm64 = 0x0100000C;  // <mach/machine.h>

// MTLGPUFamilyApple1 is 1001; the Apple families count on from there. Probing
// from the top stops at the highest family the device has.
constexpr long kAppleFamilyBase = 1000;
constexpr std::int32_t kHighestAppleFamilyProbed = 20;

constexpr std::size_t kVersionBufferBytes = 256;

// The text up to its first NUL, as a C string in a fixed buffer reads.
std::string UpToNul(const std::string& bytes, std::size_t buffer_bytes) {
  const std::size_t limit = std::min(bytes.size(), buffer_bytes);
  return bytes.substr(0, std::min(bytes.find('\0'), limit));
}

}  // namespace

MetalGpuInfo QueryMetalGpuInfo() {
  MetalGpuInfo info;
  const platform::Scoped<platform::autorelease_pool_pop> pool(platform::autorelease_pool_push());
  {
    const platform::Scoped<platform::metal_device_release> device(platform::metal_device_create());
    if (device) {
      info.name = platform::metal_device_name(device.get());
      for (std::int32_t n = kHighestAppleFamilyProbed; n >= 1; --n) {
        if (platform::metal_device_supports_family(device.get(), kAppleFamilyBase + n)) {
          info.metalGpuFamilyNumeric = n;
          break;
        }
      }
    }
  }
  const auto version = platform::os_product_version();
  if (version.ok()) info.osProductVersion = UpToNul(version.value, kVersionBufferBytes);
  return info;
}

GpuSurveyResult SurveyGpus() {
  Result outcome;
  std::vector<GpuInfo> gpus;
  const auto cpu_type = platform::gpu_host_cpu_type();
  if (!cpu_type.ok() || cpu_type.value != kCpuTypeArm64) {
    outcome = {ResultCode::NoDevicesFound, "No Apple GPUs found or not an Apple ARM64 platform."};
  } else {
    GpuInfo gpu;
    gpu.deviceId = 0;
    // A failed figure (-1) is kept bit for bit: it reads as all 64 bits set.
    gpu.totalMemoryCapacityBytes =
        static_cast<std::uint64_t>(vemora_utils::MemoryObserver::getMachinePhysicalRAM());
    gpu.dedicatedMemoryCapacityBytes =
        static_cast<std::uint64_t>(vemora_utils::MemoryObserver::getMachinePhysicalVRAM());
    gpu.integrationType = GpuIntegrationType::Integrated;
    gpu.detectionPlatform = GpuDetectionPlatform::Metal;

    MetalGpuInfo metal = QueryMetalGpuInfo();
    gpu.name = metal.name ? std::move(*metal.name) : "Apple Silicon";
    if (metal.metalGpuFamilyNumeric) {
      gpu.otherInfo["metalGpuFamilyNumeric"] = std::to_string(*metal.metalGpuFamilyNumeric);
    }
    if (metal.osProductVersion) gpu.otherInfo["osProductVersion"] = *metal.osProductVersion;

    gpus.push_back(std::move(gpu));
    outcome = {ResultCode::Success, "Successfully queried Apple Silicon for GPU Info."};
  }

  if (outcome.code == ResultCode::Success) return {outcome, std::move(gpus)};
  return {Result{outcome.code, "Error trying to query Apple gpus: " + outcome.message}, {}};
}

}  // namespace vemora::system
