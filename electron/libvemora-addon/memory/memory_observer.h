// The one entry point through which the add-on asks about memory. Stateless:
// every call asks the system afresh. Byte counts are signed 64-bit; -1 means
// the measurement failed (its diagnostic is already written).
#pragma once

#include "system/survey_types.h"

namespace vemora_utils {

class MemoryObserver {
 public:
  static long long getMachinePhysicalRAM();
  long long getAvailableRAM() const;
  // Physical less available, never below 0.
  static long long getUsedRAM();
  // The memory the GPUs may use: the working set on unified memory, the
  // GPUs' own memory summed elsewhere.
  static long long getMachinePhysicalVRAM();
  // The part of it that a new allocation could get now.
  long long getAvailableVRAM() const;
  static vemora::system::GpuLiveMemoryReport getAvailableVRAMByDevice();
  // The larger of the process's resident size and its footprint.
  static long long getProcessUsedRAM(int pid);
  bool willFailToAllocate(long long size) const;
};

}  // namespace vemora_utils
