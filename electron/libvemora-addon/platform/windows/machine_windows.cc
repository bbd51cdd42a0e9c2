// The hardware facts on Windows: cpuid's brand string (else the registry's
// ProcessorNameString), GetNativeSystemInfo and IsProcessorFeaturePresent for
// the CPU, GetSystemFirmwareTable('RSMB') for the model, GetSystemPowerStatus
// for the battery.
#include <intrin.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/windows/windows_text.h"

namespace vemora::platform {
namespace {

// PF_AVX2_INSTRUCTIONS_AVAILABLE (winnt.h), missing from older SDKs: the
// processor has AVX2 and the OS saves its registers.
constexpr DWORD kAvx2Available = 40;
constexpr DWORD kRawSmbios = 0x52534D42u;  // 'RSMB'

std::string BrandFromCpuid() {
#if defined(_M_X64) || defined(__x86_64__)
  int registers[4] = {};
  __cpuid(registers, static_cast<int>(0x80000000u));
  if (static_cast<unsigned>(registers[0]) < 0x80000004u) return {};
  char brand[48];
  for (unsigned leaf = 0; leaf < 3; ++leaf) {
    __cpuid(registers, static_cast<int>(0x80000002u + leaf));
    std::memcpy(brand + 16 * leaf, registers, sizeof registers);
  }
  return std::string(windows_text::TrimBlanks(std::string_view(brand, sizeof brand)));
#else
  return {};
#endif
}

// Where cpuid has no brand (other architectures), what Windows recorded at
// boot.
std::string BrandFromRegistry() {
  wchar_t name[128] = {};
  DWORD bytes = sizeof name - sizeof name[0];
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                     L"ProcessorNameString", RRF_RT_REG_SZ, nullptr, name,
                     &bytes) != ERROR_SUCCESS) {
    return {};
  }
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "wchar_t is UTF-16 on Windows");
  const auto* text = reinterpret_cast<const char16_t*>(name);
  return std::string(windows_text::TrimBlanks(windows_text::Utf16ToUtf8(text)));
}

}  // namespace

system::CpuInfo cpu_info() {
  using system::CpuArchitecture;
  using system::CpuInstructionSetExtension;
  system::CpuInfo info;
  info.name = BrandFromCpuid();
  if (info.name.empty()) info.name = BrandFromRegistry();
  SYSTEM_INFO system{};
  ::GetNativeSystemInfo(&system);
  if (system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64) {
    info.architecture = CpuArchitecture::x86_64;
    if (::IsProcessorFeaturePresent(kAvx2Available)) {
      info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AVX2);
    }
  } else if (system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64) {
    // Advanced SIMD is part of every 64-bit ARM core; there is no flag to ask.
    info.architecture = CpuArchitecture::ARM64;
    info.supportedInstructionSetExtensions.insert(CpuInstructionSetExtension::AdvSIMD);
  }
  return info;
}

std::optional<std::string> model_identifier() {
  // Asked for its size first; the table can change between the calls, so the
  // second call's answer is checked against the buffer.
  const UINT size = ::GetSystemFirmwareTable(kRawSmbios, 0, nullptr, 0);
  if (size == 0) return std::nullopt;
  std::vector<char> table(size);
  const UINT written = ::GetSystemFirmwareTable(kRawSmbios, 0, table.data(), size);
  if (written == 0 || written > size) return std::nullopt;
  return windows_text::SmbiosSystemProductName(std::string_view(table.data(), written));
}

bool has_internal_battery() {
  SYSTEM_POWER_STATUS status{};
  if (!::GetSystemPowerStatus(&status)) return false;
  return windows_text::HasSystemBattery(status.BatteryFlag);
}

}  // namespace vemora::platform
