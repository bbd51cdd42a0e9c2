// The hardware facts on Linux: /proc/cpuinfo and uname(2) for the CPU, the
// DMI product name or the device tree's model for the machine, and
// /sys/class/power_supply for its battery.
#include <sys/utsname.h>

#include "platform/diagnostics.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kRoot = "";

}  // namespace

system::CpuInfo cpu_info() {
  using system::CpuArchitecture;
  using system::CpuInstructionSetExtension;
  system::CpuInfo info;
  // The kernel's view, as lscpu and os.cpus() give it: a hypervisor may
  // answer a program's own cpuid with another name.
  const auto cpuinfo = linux_files::ReadCpuinfo(kRoot);
  if (cpuinfo.ok() && cpuinfo.value.name) info.name = *cpuinfo.value.name;
  struct utsname names {};
  if (::uname(&names) != 0) return info;
  info.architecture = linux_text::ArchitectureOf(names.machine);
  if (info.architecture == CpuArchitecture::x86_64) {
    if (cpuinfo.ok() && cpuinfo.value.avx2) {
      info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AVX2);
    }
  } else if (info.architecture == CpuArchitecture::ARM64) {
    // Advanced SIMD is part of every 64-bit ARM core; there is no flag to ask.
    info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AdvSIMD);
  }
  return info;
}

std::optional<std::string> model_identifier() { return linux_files::ReadModelIdentifier(kRoot); }

bool has_internal_battery() { return linux_files::HasInternalBattery(kRoot); }

}  // namespace vemora::platform
