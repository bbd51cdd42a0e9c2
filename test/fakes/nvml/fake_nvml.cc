// A test NVML: a shared library with the entry points the add-on looks up,
// loaded through the same dlopen path as NVIDIA's. What it answers is a
// script, set with vemora_fake_nvml_script() or, at nvmlInit_v2, taken from
// the environment variable VEMORA_FAKE_NVML_SCRIPT. One line per fact, fields
// separated by '|':
//
//   init|9                       nvmlInit_v2 answers 9 (NVML_ERROR_DRIVER_NOT_LOADED)
//   count|999                    nvmlDeviceGetCount_v2 answers 999
//   driver|580.65.06             nvmlSystemGetDriverVersion
//   cuda|12040                   nvmlSystemGetCudaDriverVersion_v2
//   v2|3                         nvmlDeviceGetMemoryInfo_v2 answers 3 (NOT_SUPPORTED)
//   gpu|name|total|free,free,...|busId|pciDeviceId (hex)|handle status|memory status
//
// Without a script it is a machine with an H100 and an RTX 4090 (kTwoGpus).
// A GPU's free figures are given out one per memory call, the last one kept.
// Built twice: as is, and without nvmlDeviceGetMemoryInfo_v2 (older drivers).
// Starting it again while it runs aborts: the add-on starts NVML once.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Gpu {
  std::string name, bus_id;
  unsigned long long total = 0;
  std::vector<unsigned long long> free;
  std::size_t calls = 0;
  unsigned int pci_device_id = 0;
  int handle_status = 0, memory_status = 0;
};

struct State {
  int init = 0, count = 0, v2 = 0;
  std::string driver;
  int cuda = 0;
  std::vector<Gpu> gpus;
  bool scripted = false, running = false;
};

std::mutex mutex;
State state;

constexpr const char* kTwoGpus =
    "driver|580.65.06\ncuda|12040\n"
    "gpu|NVIDIA H100 80GB HBM3|85520809984|84900000000,84000000000|00000000:65:00.0|233010DE\n"
    "gpu|NVIDIA GeForce RTX 4090|25757220864|25000000000|00000000:B3:00.0|268410DE\n";

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields;
  std::stringstream stream(line);
  for (std::string field; std::getline(stream, field, '|');) fields.push_back(field);
  return fields;
}

// Field i as a number, 0 where it is missing or empty.
unsigned long long Number(const std::vector<std::string>& f, std::size_t i, int base = 10) {
  return i < f.size() && !f[i].empty() ? std::stoull(f[i], nullptr, base) : 0;
}

void Parse(const char* script) {
  state = State{};
  state.scripted = true;
  std::stringstream lines(script);
  for (std::string line; std::getline(lines, line);) {
    const auto f = Fields(line);
    if (f.size() < 2) continue;
    if (f[0] == "init") state.init = std::stoi(f[1]);
    if (f[0] == "count") state.count = std::stoi(f[1]);
    if (f[0] == "v2") state.v2 = std::stoi(f[1]);
    if (f[0] == "driver") state.driver = f[1];
    if (f[0] == "cuda") state.cuda = std::stoi(f[1]);
    if (f[0] == "gpu") {
      Gpu gpu;
      gpu.name = f[1];
      gpu.total = Number(f, 2);
      std::stringstream frees(f.size() > 3 ? f[3] : "0");
      for (std::string n; std::getline(frees, n, ',');) gpu.free.push_back(std::stoull(n));
      gpu.bus_id = f.size() > 4 ? f[4] : "";
      gpu.pci_device_id = static_cast<unsigned int>(Number(f, 5, 16));
      gpu.handle_status = static_cast<int>(Number(f, 6));
      gpu.memory_status = static_cast<int>(Number(f, 7));
      state.gpus.push_back(gpu);
    }
  }
}

int Copy(const std::string& text, char* out, unsigned int length) {
  if (text.size() + 1 > length) return 7;  // NVML_ERROR_INSUFFICIENT_SIZE
  std::memcpy(out, text.c_str(), text.size() + 1);
  return 0;
}

Gpu* Of(void* device) { return static_cast<Gpu*>(device); }

// The next free figure of a GPU, or the status its memory calls answer.
int Memory(void* device, unsigned long long* total, unsigned long long* free) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  Gpu* gpu = Of(device);
  if (gpu->memory_status != 0) return gpu->memory_status;
  *total = gpu->total;
  *free = gpu->free[std::min(gpu->calls++, gpu->free.size() - 1)];
  return 0;
}

struct MemoryV1 {
  unsigned long long total, free, used;
};
struct MemoryV2 {
  unsigned int version;
  unsigned long long total, reserved, free, used;
};
struct PciInfo {
  char busIdLegacy[16];
  unsigned int domain, bus, device, pciDeviceId, pciSubSystemId;
  char busId[32];
};

}  // namespace

extern "C" {

void vemora_fake_nvml_script(const char* script) {
  std::lock_guard<std::mutex> lock(mutex);
  Parse(script);
}

int nvmlInit_v2() {
  std::lock_guard<std::mutex> lock(mutex);
  if (state.running) {
    std::fputs("fake NVML: nvmlInit_v2 called while NVML runs\n", stderr);
    std::abort();
  }
  const char* script = std::getenv("VEMORA_FAKE_NVML_SCRIPT");
  if (!state.scripted) Parse(script != nullptr ? script : kTwoGpus);
  state.running = state.init == 0;
  return state.init;
}

int nvmlShutdown() {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  state.running = false;
  return 0;
}

const char* nvmlErrorString(int status) {
  switch (status) {
    case 0:
      return "Success";
    case 1:
      return "Uninitialized";
    case 2:
      return "Invalid Argument";
    case 3:
      return "Not Supported";
    case 4:
      return "Insufficient Permissions";
    case 7:
      return "Insufficient Size";
    case 9:
      return "Driver Not Loaded";
    case 13:
      return "Function Not Found";
    case 15:
      return "GPU is lost";
    default:
      return "Unknown Error";
  }
}

int nvmlDeviceGetCount_v2(unsigned int* count) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  *count = static_cast<unsigned int>(state.gpus.size());
  return state.count;
}

int nvmlDeviceGetHandleByIndex_v2(unsigned int index, void** device) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  if (index >= state.gpus.size()) return 2;
  if (state.gpus[index].handle_status != 0) return state.gpus[index].handle_status;
  *device = &state.gpus[index];
  return 0;
}

int nvmlDeviceGetName(void* device, char* name, unsigned int length) {
  std::lock_guard<std::mutex> lock(mutex);
  return state.running ? Copy(Of(device)->name, name, length) : 1;
}

int nvmlDeviceGetUUID(void* device, char* uuid, unsigned int length) {
  std::lock_guard<std::mutex> lock(mutex);
  const std::size_t index = Of(device) - state.gpus.data();
  return state.running
             ? Copy("GPU-fa4e0000-0000-0000-0000-00000000000" + std::to_string(index), uuid, length)
             : 1;
}

int nvmlDeviceGetPciInfo_v3(void* device, PciInfo* pci) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  *pci = PciInfo{};
  pci->pciDeviceId = Of(device)->pci_device_id;
  return Copy(Of(device)->bus_id, pci->busId, sizeof pci->busId);
}

int nvmlDeviceGetMemoryInfo(void* device, MemoryV1* memory) {
  const int status = Memory(device, &memory->total, &memory->free);
  memory->used = memory->total - memory->free;
  return status;
}

#ifndef VEMORA_FAKE_NVML_WITHOUT_V2
int nvmlDeviceGetMemoryInfo_v2(void* device, MemoryV2* memory) {
  if (memory->version != (sizeof(MemoryV2) | (2u << 24))) return 2;
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (state.v2 != 0) return state.v2;
  }
  memory->reserved = 0;
  const int status = Memory(device, &memory->total, &memory->free);
  memory->used = memory->total - memory->free;
  return status;
}
#endif

int nvmlSystemGetDriverVersion(char* version, unsigned int length) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  return state.driver.empty() ? 3 : Copy(state.driver, version, length);
}

int nvmlSystemGetCudaDriverVersion_v2(int* version) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!state.running) return 1;
  if (state.cuda == 0) return 3;
  *version = state.cuda;
  return 0;
}

}  // extern "C"
