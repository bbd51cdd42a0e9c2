#include "memory/process_usage.h"

#include <stdexcept>
#include <string>

#include "platform/diagnostics.h"

namespace vemora_utils {

float GetCpuUsage(int pid, int /*second*/) {
  if (pid > 0) throw std::runtime_error("GetCpuUsage not yet implemented for Mac!");
  write_raw(("Failed to get CPU usage for PID '" + std::to_string(pid) +
             "' since PID must be positive!\n")
                .c_str());
  return -1.0f;
}

}  // namespace vemora_utils
