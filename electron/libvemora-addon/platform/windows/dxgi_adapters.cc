// The GPUs through DXGI (CreateDXGIFactory1, IDXGIFactory1::EnumAdapters1,
// IDXGIAdapter1::GetDesc1), on the seam of dxgi.h.
#include <cstdio>
#include <set>
#include <utility>

#include "platform/windows/dxgi.h"
#include "platform/windows/gpu_readings.h"
#include "platform/windows/windows_text.h"

namespace vemora::platform::windows_gpu {
namespace {

using system::GpuIntegrationType;
using ScopedFactory = dxgi::Scoped<dxgi::Factory, dxgi::factory_release>;
using ScopedAdapter = dxgi::Scoped<dxgi::Adapter, dxgi::adapter_release>;

// PCI vendor IDs (GPU-SOURCES, PCI-SIG).
constexpr std::uint32_t kNvidia = 0x10DE;
constexpr std::uint32_t kAmd = 0x1002;
constexpr std::uint32_t kIntel = 0x8086;
constexpr std::uint32_t kQualcomm = 0x5143;
constexpr std::uint32_t kQualcommAcpi = 0x4D4F4351;  // "QCOM", as Adreno drivers report it
constexpr std::uint32_t kArm = 0x13B5;
// Integrated GPUs of Intel and AMD report the firmware's carve-out as their
// own memory, 512 MiB or less by default; their discrete cards have GiBs.
constexpr std::uint64_t kCarveOutBytes = 512ull << 20;
constexpr const char* kNoFreeFigure =
    "DXGI gives no device-wide free memory for this GPU (QueryVideoMemoryInfo is per process)";
// A bound on the enumeration, should a driver never say "not found".
constexpr std::uint32_t kMostAdapters = 64;

// "DXGI could not list adapters (CreateDXGIFactory1: error 0x887A0004)"
GpuList::Note Failure(const std::string& line) {
  return {"DXGI could not list adapters (" + line + ")", true};
}

GpuList::Note CreationFailure(const dxgi::FactoryCreation& creation) {
  using Step = dxgi::FactoryCreation::Step;
  const auto code = static_cast<std::uint32_t>(creation.error);
  switch (creation.failed) {
    case Step::kLoadLibrary:
      return Failure(windows_text::ErrorLine("LoadLibraryExW dxgi.dll", code));
    case Step::kGetProcAddress:
      return Failure(windows_text::ErrorLine("GetProcAddress CreateDXGIFactory1", code));
    case Step::kCreateFactory:
    case Step::kDone:
      break;
  }
  return Failure(windows_text::HresultLine("CreateDXGIFactory1", creation.error));
}

std::string Hex(const char* format, std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

GpuReading ReadingOf(const dxgi::AdapterDesc& desc) {
  GpuReading gpu;
  gpu.name = std::string(windows_text::TrimBlanks(
      windows_text::Utf16ToUtf8({desc.description.data(), desc.description.size()})));
  gpu.source = "DXGI";
  gpu.integration = ClassifyAdapter(desc.vendor_id, desc.dedicated_video_bytes);
  gpu.platform = system::GpuDetectionPlatform::DirectML;
  gpu.total_bytes = desc.dedicated_video_bytes;
  gpu.memory_error = kNoFreeFigure;
  // Laid out as NVML's: the device id in the high half, the vendor's below.
  gpu.pci_device_id = desc.device_id << 16 | (desc.vendor_id & 0xFFFFu);
  gpu.pci_subsystem_id = desc.subsys_id;
  gpu.other_info["pciVendorId"] = Hex("0x%04X", desc.vendor_id);
  gpu.other_info["pciDeviceId"] = Hex("0x%04X", desc.device_id);
  // As the "GPU Adapter Memory" performance counters name their instances.
  gpu.other_info["adapterLuid"] = Hex("0x%08X", static_cast<std::uint32_t>(desc.luid_high)) + "_" +
                                  Hex("0x%08X", desc.luid_low);
  return gpu;
}

}  // namespace

GpuIntegrationType ClassifyAdapter(std::uint32_t vendor_id, std::uint64_t dedicated_video_bytes) {
  switch (vendor_id) {
    case kNvidia:
      return GpuIntegrationType::Discrete;
    case kAmd:
    case kIntel:
      return dedicated_video_bytes <= kCarveOutBytes ? GpuIntegrationType::Integrated
                                                     : GpuIntegrationType::Discrete;
    case kQualcomm:
    case kQualcommAcpi:
    case kArm:
      return GpuIntegrationType::Integrated;
    default:
      return GpuIntegrationType::Unknown;
  }
}

GpuList ReadDxgiAdapters() {
  GpuList readings;
  const dxgi::FactoryCreation creation = dxgi::factory_create();
  const ScopedFactory factory(creation.factory);
  if (!factory) {
    readings.notes.push_back(CreationFailure(creation));
    return readings;
  }
  std::set<std::pair<std::int32_t, std::uint32_t>> luids;
  for (std::uint32_t index = 0; index < kMostAdapters; ++index) {
    const auto adapter_at = dxgi::adapter_at(factory.get(), index);
    const ScopedAdapter adapter(adapter_at.ok() ? adapter_at.value : nullptr);
    if (adapter_at.error == dxgi::kNotFound) break;
    if (!adapter) {
      readings.notes.push_back(
          Failure(windows_text::HresultLine("IDXGIFactory1::EnumAdapters1", adapter_at.error)));
      return readings;
    }
    const auto desc = dxgi::adapter_desc(adapter.get());
    if (!desc.ok()) {
      readings.notes.push_back(
          Failure(windows_text::HresultLine("IDXGIAdapter1::GetDesc1", desc.error)));
      return readings;
    }
    if (desc.value.flags & dxgi::kSoftwareAdapter) continue;
    if (!luids.emplace(desc.value.luid_high, desc.value.luid_low).second) continue;
    readings.gpus.push_back(ReadingOf(desc.value));
  }
  if (readings.gpus.empty()) readings.notes.push_back({"DXGI lists no hardware adapter", false});
  return readings;
}

}  // namespace vemora::platform::windows_gpu
