// The one entry point through which the add-on asks about memory. Stateless:
// every call asks the system afresh. Byte counts are signed 64-bit; -1 means
// the measurement failed.
#pragma once

#include "system/survey_types.h"

namespace vemora_utils {

class MemoryObserver {
 public:
  static long long getMachinePhysicalRAM();
  long long getAvailableRAM() const;
  static long long getUsedRAM();
  static long long getMachinePhysicalVRAM();
  // The headroom under the global wire limit, capped by the GPU's working set.
  long long getAvailableVRAM() const;
  static vemora::system::GpuLiveMemoryReport getAvailableVRAMByDevice();
  static long long getProcessUsedRAM(int pid);
  bool willFailToAllocate(long long size) const;
};

}  // namespace vemora_utils

long long getMachinePhysicalRAM_Mac();
long long getAvailableRAM_Mac();
long long getUsedRAM_Mac();
long long getMachinePhysicalVRAM_Mac();
long long getAvailableVRAM_Mac();
