// Unified-memory figures of Apple silicon, each one short query of the OS.
// Every figure is a byte count; -1 means the query failed (its diagnostic is
// already written).
#pragma once

namespace vemora_utils {

// (free + inactive + purgeable pages) x page size.
long long count_available_physical_ram();

class AppleMetalObserver {
 public:
  static long long getMachinePhysicalRAM();
  static long long getAvailableRAM();
  static long long getUsedRAM();
  // The default Metal device's recommended working-set size.
  static long long getMachinePhysicalVRAM();
  static long long getGlobalUserWireLimit();
  static long long getSystemWiredMemory();
  static bool willFailToAllocate(long long size);
};

}  // namespace vemora_utils
