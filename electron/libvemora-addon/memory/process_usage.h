// Per-process queries: a process's memory, and its CPU usage (which this
// platform does not measure).
#pragma once

// The larger of the process's resident size and physical footprint, in bytes;
// -1 when its resource usage cannot be read.
long long getProcessUsedRAM_Mac(int pid);

namespace vemora_utils {

// -1.0 for a PID of 0 or less; throws std::runtime_error for a positive one.
float GetCpuUsage(int pid, int second);

}  // namespace vemora_utils
