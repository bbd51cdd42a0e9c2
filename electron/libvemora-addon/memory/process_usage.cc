#include "memory/process_usage.h"

#include <chrono>
#include <string>
#include <thread>

#include "memory/cpu_usage.h"
#include "platform/diagnostics.h"
#include "platform/platform.h"

namespace vemora_utils {
namespace {

// Enough for every process a desktop app watches; each entry is a few dozen
// bytes.
constexpr std::size_t kCpuHistoryCapacity = 1024;

CpuHistory& SharedCpuHistory() {
  // Never destroyed: a worker thread may still be measuring while the
  // process exits.
  static CpuHistory* const history = new CpuHistory(kCpuHistoryCapacity);
  return *history;
}

void Sleep(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace

float GetCpuUsage(int pid, int window_ms) {
  if (pid <= 0) {
    vemora::platform::WritePidFailure("CPU usage", pid, "PID must be positive!");
    return -1.0f;
  }
  return MeasureCpuUsage(pid, window_ms, SharedCpuHistory(), vemora::platform::process_cpu_times,
                         Sleep);
}

}  // namespace vemora_utils
