#include "memory/memory_observer.h"

#include <algorithm>
#include <iostream>

#include "memory/apple_metal_observer.h"
#include "memory/process_usage.h"

namespace vemora_utils {
namespace {

long long available_vram_bytes() {
  // All three are asked, in this order, even after a failure, so each failing
  // query leaves its own diagnostic.
  const long long working_set_bytes = AppleMetalObserver::getMachinePhysicalVRAM();
  const long long wire_limit_bytes = AppleMetalObserver::getGlobalUserWireLimit();
  const long long wired_bytes = AppleMetalObserver::getSystemWiredMemory();
  if (working_set_bytes < 0 || wire_limit_bytes < 0 || wired_bytes < 0) return -1;
  const long long headroom_bytes = std::max(wire_limit_bytes - wired_bytes, 0LL);
  return std::min(headroom_bytes, working_set_bytes);
}

}  // namespace

long long MemoryObserver::getMachinePhysicalRAM() {
  return AppleMetalObserver::getMachinePhysicalRAM();
}

long long MemoryObserver::getAvailableRAM() const { return AppleMetalObserver::getAvailableRAM(); }

long long MemoryObserver::getUsedRAM() { return AppleMetalObserver::getUsedRAM(); }

long long MemoryObserver::getMachinePhysicalVRAM() {
  return AppleMetalObserver::getMachinePhysicalVRAM();
}

long long MemoryObserver::getAvailableVRAM() const { return available_vram_bytes(); }

vemora::system::GpuLiveMemoryReport MemoryObserver::getAvailableVRAMByDevice() {
  // Unified memory has no per-device figures to report.
  return {vemora::system::Result{vemora::system::ResultCode::Error, "Not implemented"}, {}};
}

long long MemoryObserver::getProcessUsedRAM(int pid) {
  if (pid > 0) return getProcessUsedRAM_Mac(pid);
  std::cerr << "Failed to get used RAM for PID '" << pid << "' since PID must be positive!"
            << std::endl;
  return -1;
}

bool MemoryObserver::willFailToAllocate(long long size) const {
  return AppleMetalObserver::willFailToAllocate(size);
}

}  // namespace vemora_utils

using vemora_utils::AppleMetalObserver;

long long getMachinePhysicalRAM_Mac() { return AppleMetalObserver::getMachinePhysicalRAM(); }
long long getAvailableRAM_Mac() { return AppleMetalObserver::getAvailableRAM(); }
long long getUsedRAM_Mac() { return AppleMetalObserver::getUsedRAM(); }
long long getMachinePhysicalVRAM_Mac() { return AppleMetalObserver::getMachinePhysicalVRAM(); }
long long getAvailableVRAM_Mac() { return vemora_utils::available_vram_bytes(); }
