// Unified-memory figures of Apple silicon, each one short query of Apple's
// calls. Every figure is a byte count; -1 means the query failed (its
// diagnostic is already written).
#pragma once

namespace vemora_utils {

// (free + inactive + purgeable pages) x page size.
long long count_available_physical_ram();

// Swap figures in bytes; false (out-parameters untouched) when unreadable.
bool get_system_swap_usage(unsigned long long* used, unsigned long long* total);

class AppleMetalObserver {
 public:
  static long long getMachinePhysicalRAM();
  static long long getAvailableRAM();
  static long long getUsedRAM();
  // The default Metal device's recommended working-set size.
  static long long getMachinePhysicalVRAM();
  static long long getGlobalUserWireLimit();
  static long long getSystemWiredMemory();
  // What the allocation check counts as available: the 32-bit statistics'
  // free + inactive + purgeable pages, in unsigned 64-bit arithmetic.
  static bool allocatableBytes(unsigned long long* bytes);
};

}  // namespace vemora_utils

long long getMachinePhysicalRAM_Mac();
long long getAvailableRAM_Mac();
long long getUsedRAM_Mac();
long long getMachinePhysicalVRAM_Mac();
// The headroom under the global wire limit, capped by the GPU's working set.
long long getAvailableVRAM_Mac();
// The larger of the process's resident size and physical footprint, in bytes;
// -1 when its resource usage cannot be read.
long long getProcessUsedRAM_Mac(int pid);
