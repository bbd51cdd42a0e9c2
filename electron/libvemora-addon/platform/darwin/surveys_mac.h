// The macOS CPU and GPU surveys, for the facts and the tests.
#pragma once

#include <string>

#include "system/survey_types.h"

namespace vemora::system {

// The record as far as the kernel answered; reports no status.
CpuInfo SurveyCpuMac();

// Whether "hw.cputype" reads as 64-bit ARM: the only Macs with an Apple GPU.
bool IsAppleArm64();

// What Metal tells of the default device, and the OS version.
MetalGpuInfo QueryMetalGpuInfo();

}  // namespace vemora::system

namespace vemora::platform {

// A sysctl text read into a 256-byte buffer, up to its first NUL.
std::string UpToNul(const std::string& bytes);

}  // namespace vemora::platform
