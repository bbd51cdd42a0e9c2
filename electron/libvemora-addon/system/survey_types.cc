#include "system/survey_types.h"

#include <iterator>

namespace vemora::system {
namespace {

// Looks a value up in a table indexed from 0, taking it as unsigned so that
// negative values fall outside.
template <std::size_t N>
std::string Lookup(const char* const (&names)[N], std::int32_t value, const char* fallback) {
  const auto index = static_cast<std::uint32_t>(value);
  return index < N ? names[index] : fallback;
}

}  // namespace

std::string ResultCodeToStr(ResultCode code) {
  static constexpr const char* kNames[] = {"Unset",
                                           "Success",
                                           "Error",
                                           "NoDevicesFound",
                                           "InvalidDevice",
                                           "InitializationFailed",
                                           "LibraryLoadFailed",
                                           "FunctionNotAvailable",
                                           "NotImplemented"};
  return Lookup(kNames, static_cast<std::int32_t>(code), "Unknown");
}

std::string CpuArchitectureToStr(CpuArchitecture architecture) {
  static constexpr const char* kNames[] = {"x86_64", "ARM64", "Unknown"};
  return Lookup(kNames, static_cast<std::int32_t>(architecture), "Unknown");
}

std::string CpuInstructionSetExtensionToStr(CpuInstructionSetExtension extension) {
  static constexpr const char* kNames[] = {"AVX", "AVX2", "AdvSIMD"};
  return Lookup(kNames, static_cast<std::int32_t>(extension), "Unknown");
}

std::string CpuInstructionSetExtensionsToStr(const CpuInstructionSetExtensions& extensions) {
  std::string text;
  for (const auto extension : extensions) {
    if (!text.empty()) text += ", ";
    text += CpuInstructionSetExtensionToStr(extension);
  }
  return text;
}

std::string GpuIntegrationTypeToStr(GpuIntegrationType type) {
  static constexpr const char* kNames[] = {"Unknown", "Integrated", "Discrete"};
  return Lookup(kNames, static_cast<std::int32_t>(type), "Unknown");
}

std::string GpuDetectionPlatformToStr(GpuDetectionPlatform platform) {
  static constexpr const char* kNames[] = {"Unknown", "ROCm",     "CUDA",   "OpenCl",
                                           "Metal",   "DirectML", "Vulkan", "OpenVINO"};
  return Lookup(kNames, static_cast<std::int32_t>(platform), "Unknown");
}

std::string DeviceTypeToStr(DeviceType type) {
  static constexpr const char* kNames[] = {"Laptop", "Desktop", "MacMini", "MacStudio"};
  return Lookup(kNames, static_cast<std::int32_t>(type), "Other");
}

}  // namespace vemora::system
