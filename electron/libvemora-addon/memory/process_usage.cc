#include "memory/process_usage.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "platform/platform.h"

long long getProcessUsedRAM_Mac(int pid) {
  const auto usage = vemora::platform::process_memory(pid);
  if (!usage.ok()) {
    std::cerr << "Failed to retrieve resource usage for pid " << pid << std::endl;
    return -1;
  }
  return static_cast<long long>(std::max(usage.value.resident_bytes, usage.value.footprint_bytes));
}

namespace vemora_utils {

float GetCpuUsage(int pid, int /*second*/) {
  if (pid > 0) throw std::runtime_error("GetCpuUsage not yet implemented for Mac!");
  std::cerr << "Failed to get CPU usage for PID '" << pid << "' since PID must be positive!"
            << std::endl;
  return -1.0f;
}

}  // namespace vemora_utils
