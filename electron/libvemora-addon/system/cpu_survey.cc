#include "system/cpu_survey.h"

#include <algorithm>
#include <stdexcept>

#include "platform/platform.h"

namespace vemora::system {
namespace {

// Mach CPU types (<mach/machine.h>): the family with CPU_ARCH_ABI64 set.
constexpr std::int32_t kCpuTypeX86_64 = 0x01000007;
constexpr std::int32_t kCpuTypeArm64 = 0x0100000C;

// The brand string is read into a 256-byte buffer.
constexpr std::size_t kBrandBufferBytes = 256;

}  // namespace

CpuInfo SurveyCpuMac() {
  CpuInfo info;
  const auto brand = platform::cpu_brand_string();
  if (brand.ok()) {
    const std::string& bytes = brand.value;
    const std::size_t limit = std::min(bytes.size(), kBrandBufferBytes);
    info.name.assign(bytes.data(), std::min(bytes.find('\0'), limit));
  }

  const auto cpu_type = platform::cpu_type();
  if (!cpu_type.ok()) return info;
  if (cpu_type.value == kCpuTypeX86_64) {
    info.architecture = CpuArchitecture::x86_64;
    const auto avx2 = platform::cpu_avx2_flag();
    if (avx2.ok() && avx2.value != 0) {
      info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AVX2);
    }
  } else if (cpu_type.value == kCpuTypeArm64) {
    // Advanced SIMD is part of every 64-bit ARM core; there is no flag to ask.
    info.architecture = CpuArchitecture::ARM64;
    info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AdvSIMD);
  }
  return info;
}

CpuSurveyResult SurveyCpu() {
  try {
    return {Result{ResultCode::Success, ""}, SurveyCpuMac()};
  } catch (const std::runtime_error& error) {
    return {Result{ResultCode::Error, error.what()}, CpuInfo{}};
  }
}

}  // namespace vemora::system
