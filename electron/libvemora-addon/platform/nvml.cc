#include "platform/nvml.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/library.h"

namespace vemora::platform {
namespace {

// From the NVML API reference (docs.nvidia.com/deploy/nvml-api): every call
// returns an nvmlReturn_t, a C enum.
using Return = int;
constexpr Return kSuccess = 0;
constexpr Return kNotSupported = 3;
constexpr Return kFunctionNotFound = 13;

struct DeviceHandle;
using Device = DeviceHandle*;

struct Memory {
  unsigned long long total, free, used;
};
// nvmlMemory_v2_t: "reserved" is what the driver and firmware keep.
struct MemoryV2 {
  unsigned int version;
  unsigned long long total, reserved, free, used;
};
// nvmlMemory_v2: the structure's size with the version in the top byte.
constexpr unsigned int kMemoryV2 = sizeof(MemoryV2) | (2u << 24);

struct PciInfo {
  char busIdLegacy[16];
  unsigned int domain, bus, device, pciDeviceId, pciSubSystemId;
  char busId[32];
};

// NVML_DEVICE_NAME_V2_BUFFER_SIZE and NVML_DEVICE_UUID_V2_BUFFER_SIZE are 96,
// NVML_SYSTEM_DRIVER_VERSION_BUFFER_SIZE 80.
constexpr unsigned int kTextCapacity = 96;

std::string Text(const char* buffer, std::size_t capacity) {
  return std::string(buffer, strnlen(buffer, capacity));
}

}  // namespace

struct Nvml::Api {
  Return (*init)();
  Return (*shutdown)();
  Return (*count)(unsigned int*);
  Return (*handle_by_index)(unsigned int, Device*);
  Return (*name)(Device, char*, unsigned int);
  Return (*memory)(Device, Memory*);
  // Optional: older drivers lack these.
  Return (*memory_v2)(Device, MemoryV2*);
  const char* (*error_string)(Return);
  Return (*pci_info)(Device, PciInfo*);
  Return (*uuid)(Device, char*, unsigned int);
  Return (*driver_version)(char*, unsigned int);
  Return (*cuda_version)(int*);

  // "nvmlInit_v2: Driver Not Loaded"
  std::string Failed(const char* call, Return status) const {
    const char* reason = error_string != nullptr ? error_string(status) : nullptr;
    return std::string(call) + ": " +
           (reason != nullptr ? reason : "error " + std::to_string(status));
  }
};

namespace {

template <typename Function>
bool Lookup(void* library, const char* symbol, Function*& function) {
  function = reinterpret_cast<Function*>(library::Find(library, symbol));
  return function != nullptr;
}

// The figures of one GPU into `gpu`, or why they could not be had. The _v2
// call tells memory the driver reserves apart; drivers before it, and GPUs
// it does not serve, answer the first.
void ReadMemory(const Nvml::Api& api, Device device, GpuReading* gpu) {
  if (api.memory_v2 != nullptr) {
    MemoryV2 memory{};
    memory.version = kMemoryV2;
    const Return status = api.memory_v2(device, &memory);
    if (status == kSuccess) {
      gpu->total_bytes = memory.total;
      gpu->free_bytes = memory.free;
      return;
    }
    if (status != kNotSupported && status != kFunctionNotFound) {
      gpu->memory_error = api.Failed("nvmlDeviceGetMemoryInfo_v2", status);
      return;
    }
  }
  Memory memory{};
  const Return status = api.memory(device, &memory);
  if (status != kSuccess) {
    gpu->memory_error = api.Failed("nvmlDeviceGetMemoryInfo", status);
    return;
  }
  gpu->total_bytes = memory.total;
  gpu->free_bytes = memory.free;
}

// The facts of the whole driver: its version, and the highest CUDA version it
// runs (1000 x major + 10 x minor).
std::pair<std::string, std::string> Versions(const Nvml::Api& api) {
  std::pair<std::string, std::string> versions;
  char text[kTextCapacity] = {};
  if (api.driver_version != nullptr && api.driver_version(text, sizeof text) == kSuccess) {
    versions.first = Text(text, sizeof text);
  }
  int cuda = 0;
  if (api.cuda_version != nullptr && api.cuda_version(&cuda) == kSuccess && cuda > 0) {
    versions.second = std::to_string(cuda / 1000) + "." + std::to_string(cuda % 1000 / 10);
  }
  return versions;
}

// The PCI ids always, since other sources' GPUs are matched by them; the
// rest only when `describe`.
void Describe(const Nvml::Api& api, Device device, bool describe, GpuReading* gpu) {
  PciInfo pci{};
  if (api.pci_info != nullptr && api.pci_info(device, &pci) == kSuccess) {
    gpu->pci_device_id = pci.pciDeviceId;
    gpu->pci_subsystem_id = pci.pciSubSystemId;
    if (!describe) return;
    gpu->other_info["pciBusId"] = Text(pci.busId, sizeof pci.busId);
    // The device id in the high half, the vendor's in the low: "10DE:2330".
    char ids[16];
    std::snprintf(ids, sizeof ids, "%04X:%04X", pci.pciDeviceId & 0xFFFFu, pci.pciDeviceId >> 16);
    gpu->other_info["pciDeviceId"] = ids;
  }
  if (!describe) return;
  char uuid[kTextCapacity] = {};
  if (api.uuid != nullptr && api.uuid(device, uuid, sizeof uuid) == kSuccess) {
    gpu->other_info["uuid"] = Text(uuid, sizeof uuid);
  }
}

}  // namespace

Nvml::Nvml(const char* library) {
  std::string error;
  library_ = library::Open(library, &error);
  if (library_ == nullptr) {
    problem_ = {"NVML could not be loaded (" + error + ")", false};
    return;
  }
  auto api = std::make_unique<Api>();
  const bool complete = Lookup(library_, "nvmlInit_v2", api->init) &&
                        Lookup(library_, "nvmlShutdown", api->shutdown) &&
                        Lookup(library_, "nvmlDeviceGetCount_v2", api->count) &&
                        Lookup(library_, "nvmlDeviceGetHandleByIndex_v2", api->handle_by_index) &&
                        Lookup(library_, "nvmlDeviceGetName", api->name) &&
                        Lookup(library_, "nvmlDeviceGetMemoryInfo", api->memory);
  Lookup(library_, "nvmlDeviceGetMemoryInfo_v2", api->memory_v2);
  Lookup(library_, "nvmlErrorString", api->error_string);
  Lookup(library_, "nvmlDeviceGetPciInfo_v3", api->pci_info);
  Lookup(library_, "nvmlDeviceGetUUID", api->uuid);
  Lookup(library_, "nvmlSystemGetDriverVersion", api->driver_version);
  Lookup(library_, "nvmlSystemGetCudaDriverVersion_v2", api->cuda_version);
  Return status = kSuccess;
  if (!complete) {
    problem_ = {std::string(library) + " lacks NVML's entry points", true};
  } else if ((status = api->init()) != kSuccess) {
    problem_ = {"NVML could not start (" + api->Failed("nvmlInit_v2", status) + ")", true};
  } else {
    api_ = std::move(api);
    return;
  }
  library::Close(library_);
  library_ = nullptr;
}

Nvml::~Nvml() {
  if (api_) api_->shutdown();
  if (library_ != nullptr) library::Close(library_);
}

void Nvml::Read(GpuList* list, bool describe) const {
  if (!api_) {
    list->notes.push_back(problem_);
    return;
  }
  unsigned int count = 0;
  if (const Return status = api_->count(&count); status != kSuccess) {
    list->notes.push_back(
        {"NVML could not count its GPUs (" + api_->Failed("nvmlDeviceGetCount_v2", status) + ")",
         true});
    return;
  }
  if (count == 0) {
    list->notes.push_back({"NVML lists no GPU", false});
    return;
  }
  const auto versions = describe ? Versions(*api_) : std::pair<std::string, std::string>();
  for (unsigned int i = 0; i < count; ++i) {
    GpuReading gpu;
    gpu.name = "NVIDIA GPU " + std::to_string(i);
    gpu.source = "NVML";
    gpu.platform = system::GpuDetectionPlatform::CUDA;
    gpu.platform_version = versions.second;
    if (!versions.first.empty()) gpu.other_info["driverVersion"] = versions.first;
    Device device = nullptr;
    if (const Return status = api_->handle_by_index(i, &device); status != kSuccess) {
      gpu.memory_error = api_->Failed("nvmlDeviceGetHandleByIndex_v2", status);
      list->gpus.push_back(std::move(gpu));
      continue;
    }
    char name[kTextCapacity] = {};
    if (api_->name(device, name, sizeof name) == kSuccess) gpu.name = Text(name, sizeof name);
    ReadMemory(*api_, device, &gpu);
    Describe(*api_, device, describe, &gpu);
    list->gpus.push_back(std::move(gpu));
  }
}

}  // namespace vemora::platform
