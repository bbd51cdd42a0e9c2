// A process's CPU usage (which this platform does not measure yet).
#pragma once

namespace vemora_utils {

// -1.0 for a PID of 0 or less; throws std::runtime_error for a positive one.
float GetCpuUsage(int pid, int second);

}  // namespace vemora_utils
