// A process's CPU usage, in percent of one logical CPU.
#pragma once

namespace vemora_utils {

// -1.0 for a PID of 0 or less, or when the process cannot be measured. With
// window_ms above 0 the average over that window, which blocks the calling
// thread for it; otherwise at once, the average since this PID was last
// measured, or over the process's lifetime the first time. Throws
// std::runtime_error for a positive PID where the OS's figure is not
// measured (macOS).
float GetCpuUsage(int pid, int window_ms);

}  // namespace vemora_utils
