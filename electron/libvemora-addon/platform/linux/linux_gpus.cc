// AMD GPUs on Linux: opendir(3) on /sys/class/drm, then the amdgpu driver's
// files of each card's PCI device (Documentation/gpu/amdgpu/driver-misc.rst)
// and libdrm's amdgpu.ids for its name, read with open(2) and read(2).
#include "platform/linux/linux_gpus.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"

namespace vemora::platform::linux_gpus {
namespace {

constexpr const char* kDrm = "/sys/class/drm";
constexpr const char* kAmdgpuIds = "/usr/share/libdrm/amdgpu.ids";
// The DKMS driver (AMD's packages) publishes its version; the kernel's own
// amdgpu, versioned with the kernel, does not.
constexpr const char* kModuleVersion = "/sys/module/amdgpu/version";
// An APU's own memory is the carve-out its firmware reserves from RAM, 512 MiB
// or less unless set otherwise; a discrete card has more. The driver publishes
// no flag for it in sysfs.
constexpr std::uint64_t kCarveOutBytes = 512ull << 20;
// A sysfs attribute is at most a page; amdgpu.ids is some tens of KiB.
constexpr std::size_t kAttributeCapacity = 4096;
constexpr std::size_t kIdsCapacity = 256 * 1024;

// The file's text, or its errno.
int ReadText(const char* root, const std::string& path, std::string* text) {
  char buffer[kAttributeCapacity];
  std::size_t length = 0;
  const int error = linux_files::ReadSmallFile(root, path.c_str(), buffer, sizeof buffer, &length);
  if (error == 0) text->assign(buffer, length);
  return error;
}

int ReadIds(const char* root, std::string* ids) {
  std::unique_ptr<char[]> buffer(new char[kIdsCapacity]);
  std::size_t length = 0;
  const int error =
      linux_files::ReadSmallFile(root, kAmdgpuIds, buffer.get(), kIdsCapacity, &length);
  if (error == 0) ids->assign(buffer.get(), length);
  return error;
}

// A byte-count attribute; unset when it cannot be had, and the first such
// reason goes to *why ("/sys/.../mem_info_vram_used: No such file or directory").
std::optional<std::uint64_t> ReadBytes(const char* root, const std::string& path,
                                       std::string* why) {
  std::string text;
  std::optional<std::uint64_t> bytes;
  if (const int error = ReadText(root, path, &text)) {
    if (why->empty()) *why = path + ": " + std::strerror(error);
  } else if (!(bytes = linux_text::ParseCount(text)) && why->empty()) {
    *why = path + ": not a byte count";
  }
  return bytes;
}

// Its board's product name where the board carries one (data-centre cards),
// else the name libdrm gives its ids.
std::optional<std::string> ProductName(const char* root, const std::string& device,
                                       std::string_view pci_id, std::string* ids) {
  std::string text;
  if (ReadText(root, device + "product_name", &text) == 0) {
    const std::string_view name = linux_text::FirstLine(text);
    if (!name.empty()) return std::string(name);
  }
  const std::size_t colon = pci_id.find(':');
  const auto device_id = linux_text::ParseHexId(
      colon == std::string_view::npos ? std::string_view() : pci_id.substr(colon + 1));
  if (!device_id || ReadText(root, device + "revision", &text) != 0) return std::nullopt;
  const auto revision = linux_text::ParseHexId(text);
  if (!revision) return std::nullopt;
  if (ids->empty() && ReadIds(root, ids) != 0) return std::nullopt;
  const auto name = linux_text::AmdgpuIdsName(*ids, *device_id, *revision);
  return name ? std::optional<std::string>(*name) : std::nullopt;
}

std::string ModuleVersion(const char* root) {
  std::string text;
  return ReadText(root, kModuleVersion, &text) == 0 ? std::string(linux_text::FirstLine(text)) : "";
}

}  // namespace

void ReadAmdgpu(const char* root, GpuList* list, bool describe) {
  const std::string none = std::string("no card in ") + kDrm + " is driven by amdgpu";
  const std::string drm = std::string(root) + kDrm;
  DIR* directory = ::opendir(drm.c_str());
  if (directory == nullptr) {
    const int error = errno;
    list->notes.push_back({none + " (" + kDrm + ": " + std::strerror(error) + ")", false});
    return;
  }
  std::optional<std::string> version;  // the driver's, read at the first amdgpu card
  std::vector<std::pair<std::string, GpuReading>> cards;  // by PCI slot
  std::vector<std::string> others;                        // "card0: nouveau"
  std::string ids;
  while (const dirent* entry = ::readdir(directory)) {
    if (!linux_text::IsDrmCard(entry->d_name)) continue;
    const std::string device = std::string(kDrm) + "/" + entry->d_name + "/device/";
    std::string uevent_text;
    // A card with no device behind it has nothing to read.
    if (ReadText(root, device + "uevent", &uevent_text) != 0) continue;
    const auto uevent = linux_text::ParsePciUevent(uevent_text);
    if (uevent.driver != "amdgpu") {
      others.push_back(std::string(entry->d_name) + ": " +
                       (uevent.driver.empty() ? "no driver" : std::string(uevent.driver)));
      continue;
    }
    GpuReading gpu;
    gpu.source = "amdgpu";
    gpu.platform = system::GpuDetectionPlatform::ROCm;
    gpu.name = "AMD GPU " + std::string(uevent.pci_id);
    if (describe) {
      if (auto name = ProductName(root, device, uevent.pci_id, &ids)) gpu.name = std::move(*name);
      if (!version) version = ModuleVersion(root);
      gpu.platform_version = *version;
      gpu.other_info["pciBusId"] = std::string(uevent.slot);
      gpu.other_info["pciDeviceId"] = std::string(uevent.pci_id);
      if (!version->empty()) gpu.other_info["driverVersion"] = *version;
    }
    const auto total = ReadBytes(root, device + "mem_info_vram_total", &gpu.memory_error);
    const auto used = ReadBytes(root, device + "mem_info_vram_used", &gpu.memory_error);
    gpu.total_bytes = total;
    if (total && used) gpu.free_bytes = *total > *used ? *total - *used : 0;
    using Integration = system::GpuIntegrationType;
    gpu.integration = !total                     ? Integration::Unknown
                      : *total <= kCarveOutBytes ? Integration::Integrated
                                                 : Integration::Discrete;
    cards.emplace_back(std::string(uevent.slot), std::move(gpu));
  }
  ::closedir(directory);
  if (cards.empty()) {
    std::sort(others.begin(), others.end());
    std::string seen;
    for (const auto& other : others) seen += (seen.empty() ? " (" : ", ") + other;
    list->notes.push_back({none + seen + (seen.empty() ? "" : ")"), false});
    return;
  }
  std::sort(cards.begin(), cards.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& card : cards) list->gpus.push_back(std::move(card.second));
}

GpuList ReadGpus(const Nvml& nvml, const char* root, bool describe) {
  GpuList list;
  nvml.Read(&list, describe);
  ReadAmdgpu(root, &list, describe);
  return list;
}

}  // namespace vemora::platform::linux_gpus
