// The GPU survey on macOS: the one Apple GPU of an Apple-silicon Mac, named
// and classed through Metal inside an autorelease pool.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/darwin/apple.h"
#include "platform/darwin/apple_metal_observer.h"
#include "platform/darwin/surveys_mac.h"
#include "platform/platform.h"

namespace vemora::system {
namespace {

namespace apple = platform::apple;

// MTLGPUFamilyApple1 is 1001; the Apple families count on from there. Probing
// from the top stops at the highest family the device has.
constexpr long kAppleFamilyBase = 1000;
constexpr std::int32_t kHighestAppleFamilyProbed = 20;

}  // namespace

MetalGpuInfo QueryMetalGpuInfo() {
  MetalGpuInfo info;
  const apple::Scoped<apple::AutoreleasePool, apple::autorelease_pool_pop> pool(
      apple::autorelease_pool_push());
  {
    const apple::Scoped<apple::MetalDevice, apple::metal_device_release> device(
        apple::metal_device_create());
    if (device) {
      info.name = apple::metal_device_name(device.get());
      for (std::int32_t n = kHighestAppleFamilyProbed; n >= 1; --n) {
        if (apple::metal_device_supports_family(device.get(), kAppleFamilyBase + n)) {
          info.metalGpuFamilyNumeric = n;
          break;
        }
      }
    }
  }
  const auto version = apple::sysctlbyname_text256("kern.osproductversion");
  if (version.ok()) info.osProductVersion = platform::UpToNul(version.value);
  return info;
}

}  // namespace vemora::system

namespace vemora::platform {

system::GpuSurveyResult survey_gpus() {
  using namespace system;
  if (!IsAppleArm64()) {
    return {Result{ResultCode::NoDevicesFound,
                   "Error trying to query Apple gpus: No Apple GPUs found or not an Apple ARM64 "
                   "platform."},
            {}};
  }
  GpuInfo gpu;
  gpu.deviceId = 0;
  // A failed figure (-1) is kept bit for bit: it reads as all 64 bits set.
  gpu.totalMemoryCapacityBytes =
      static_cast<std::uint64_t>(vemora_utils::AppleMetalObserver::getMachinePhysicalRAM());
  gpu.dedicatedMemoryCapacityBytes =
      static_cast<std::uint64_t>(vemora_utils::AppleMetalObserver::getMachinePhysicalVRAM());
  gpu.integrationType = GpuIntegrationType::Integrated;
  gpu.detectionPlatform = GpuDetectionPlatform::Metal;

  MetalGpuInfo metal = QueryMetalGpuInfo();
  gpu.name = metal.name ? std::move(*metal.name) : "Apple Silicon";
  if (metal.metalGpuFamilyNumeric) {
    gpu.otherInfo["metalGpuFamilyNumeric"] = std::to_string(*metal.metalGpuFamilyNumeric);
  }
  if (metal.osProductVersion) gpu.otherInfo["osProductVersion"] = *metal.osProductVersion;

  std::vector<GpuInfo> gpus;
  gpus.push_back(std::move(gpu));
  return {Result{ResultCode::Success, "Successfully queried Apple Silicon for GPU Info."},
          std::move(gpus)};
}

}  // namespace vemora::platform
