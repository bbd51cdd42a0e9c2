#include "memory/process_usage.h"

#include <iostream>
#include <stdexcept>

namespace vemora_utils {

float GetCpuUsage(int pid, int /*second*/) {
  if (pid > 0) throw std::runtime_error("GetCpuUsage not yet implemented for Mac!");
  std::cerr << "Failed to get CPU usage for PID '" << pid << "' since PID must be positive!"
            << std::endl;
  return -1.0f;
}

}  // namespace vemora_utils
