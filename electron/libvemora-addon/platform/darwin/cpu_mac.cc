// The CPU fact on macOS: sysctlbyname's brand string, CPU type and AVX2 flag.
#include <algorithm>
#include <cstdint>

#include "platform/darwin/apple.h"
#include "platform/darwin/surveys_mac.h"
#include "platform/platform.h"

namespace vemora::system {
namespace {

namespace apple = platform::apple;

// Mach CPU types (<mach/machine.h>): the family with CPU_ARCH_ABI64 set.
constexpr std::int32_t kCpuTypeX86_64 = 0x01000007;
constexpr std::int32_t kCpuTypeArm64 = 0x0100000C;

}  // namespace

CpuInfo SurveyCpuMac() {
  CpuInfo info;
  const auto brand = apple::sysctlbyname_text256("machdep.cpu.brand_string");
  if (brand.ok()) info.name = platform::UpToNul(brand.value);

  const auto cpu_type = apple::sysctlbyname_i32("hw.cputype");
  if (!cpu_type.ok()) return info;
  if (cpu_type.value == kCpuTypeX86_64) {
    info.architecture = CpuArchitecture::x86_64;
    const auto avx2 = apple::sysctlbyname_i32("hw.optional.avx2_0");
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

bool IsAppleArm64() {
  const auto cpu_type = apple::sysctlbyname_i32("hw.cputype");
  return cpu_type.ok() && cpu_type.value == kCpuTypeArm64;
}

}  // namespace vemora::system

namespace vemora::platform {

system::CpuInfo cpu_info() { return system::SurveyCpuMac(); }

std::string UpToNul(const std::string& bytes) {
  // A text read into a 256-byte buffer ends at its first NUL, or at the end
  // of the buffer.
  constexpr std::size_t kBufferBytes = 256;
  return bytes.substr(0, std::min({bytes.find('\0'), bytes.size(), kBufferBytes}));
}

}  // namespace vemora::platform
