// The records the hardware survey and the per-device memory report hand back,
// their status, the enumerations that classify CPUs, GPUs and machines, and
// the fixed name of every enumeration value (names JavaScript callers see).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace vemora::system {

enum class ResultCode : std::int32_t {
  Unset = 0,
  Success = 1,
  Error = 2,
  NoDevicesFound = 3,
  InvalidDevice = 4,
  InitializationFailed = 5,
  LibraryLoadFailed = 6,
  FunctionNotAvailable = 7,
  NotImplemented = 8,
};

enum class CpuArchitecture : std::int32_t { x86_64 = 0, ARM64 = 1, Unknown = 2 };

enum class CpuInstructionSetExtension : std::int32_t { AVX = 0, AVX2 = 1, AdvSIMD = 2 };

enum class GpuIntegrationType : std::int32_t { Unknown = 0, Integrated = 1, Discrete = 2 };

enum class GpuDetectionPlatform : std::int32_t {
  Unknown = 0,
  ROCm = 1,
  CUDA = 2,
  OpenCl = 3,
  Metal = 4,
  DirectML = 5,
  Vulkan = 6,
  OpenVINO = 7,
};

enum class DeviceType : std::int32_t {
  Laptop = 0,
  Desktop = 1,
  MacMini = 2,
  MacStudio = 3,
  Other = 4,
};

struct Result {
  ResultCode code = ResultCode::Unset;
  std::string message;
};

using CpuInstructionSetExtensions = std::unordered_set<CpuInstructionSetExtension>;

struct CpuInfo {
  std::string name;
  CpuArchitecture architecture = CpuArchitecture::Unknown;
  CpuInstructionSetExtensions supportedInstructionSetExtensions;
};

struct GpuInfo {
  std::string name;
  std::int32_t deviceId = -1;
  std::uint64_t totalMemoryCapacityBytes = 0;
  std::uint64_t dedicatedMemoryCapacityBytes = 0;
  GpuIntegrationType integrationType = GpuIntegrationType::Unknown;
  GpuDetectionPlatform detectionPlatform = GpuDetectionPlatform::Unknown;
  std::string detectionPlatformVersion;
  std::unordered_map<std::string, std::string> otherInfo;
};

struct MetalGpuInfo {
  std::optional<std::string> name;
  std::optional<std::int32_t> metalGpuFamilyNumeric;
  std::optional<std::string> osProductVersion;
};

using CpuSurveyResult = std::pair<Result, CpuInfo>;
using GpuSurveyResult = std::pair<Result, std::vector<GpuInfo>>;

struct HardwareSurveyResult {
  GpuSurveyResult gpuSurveyResult;
  CpuSurveyResult cpuSurveyResult;
};

struct GpuLiveMemoryResult {
  Result result;
  std::optional<std::string> name;
  std::optional<std::int32_t> deviceId;
  std::optional<std::uint64_t> totalVramBytes;
  std::optional<std::uint64_t> freeVramBytes;
};

using GpuLiveMemoryReport = std::pair<Result, std::vector<GpuLiveMemoryResult>>;

// "Unknown" for any value outside the table.
std::string ResultCodeToStr(ResultCode code);
std::string CpuArchitectureToStr(CpuArchitecture architecture);
std::string CpuInstructionSetExtensionToStr(CpuInstructionSetExtension extension);
// The names joined by ", ", in the set's own order.
std::string CpuInstructionSetExtensionsToStr(const CpuInstructionSetExtensions& extensions);
std::string GpuIntegrationTypeToStr(GpuIntegrationType type);
std::string GpuDetectionPlatformToStr(GpuDetectionPlatform platform);
std::string DeviceTypeToStr(DeviceType type);

}  // namespace vemora::system
