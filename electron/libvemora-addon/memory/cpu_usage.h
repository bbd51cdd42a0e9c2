// A process's CPU use as a percentage of one logical CPU (100 for one busy
// core, 200 for two), as top, ps, psutil and pidusage count it: from two
// readings of its CPU times, or from one over its lifetime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "platform/platform.h"

namespace vemora_utils {

using vemora::platform::ProcessCpuTimes;

// Between two readings of the same process; none when the later one is not
// later (a clock that went back) or counts less CPU time.
std::optional<float> CpuPercentBetween(const ProcessCpuTimes& earlier,
                                       const ProcessCpuTimes& later);
// From the process's start to the reading (what ps shows); 0 for a process
// not measurably old.
float CpuPercentOverLifetime(const ProcessCpuTimes& now);

// The last reading of each process measured, so that a call without a window
// answers the average since then. Safe to share between threads; holds at
// most `capacity` processes, forgetting the least recently measured first.
class CpuHistory {
 public:
  // CPU time is counted in ticks (10 ms on Linux, about 15.6 ms on
  // Windows): over a shorter span a figure says more about the ticks than
  // about the process.
  static constexpr std::uint64_t kMinimumWindowNs = 100'000'000;

  explicit CpuHistory(std::size_t capacity) : capacity_(capacity) {}

  // The figure for this reading: since the kept reading of the same process
  // (same PID and start time), or over its lifetime when there is none.
  // Within the minimum window of the kept reading, the figure that reading
  // gave is answered again and the kept reading stays.
  float Measure(int pid, const ProcessCpuTimes& now);
  // Keeps a reading and the figure it gave, unless a later one of the same
  // process is kept already (another thread's).
  void Keep(int pid, const ProcessCpuTimes& now, float percent);
  // A process that can no longer be read.
  void Forget(int pid);
  std::size_t size() const;

 private:
  struct Entry {
    ProcessCpuTimes reading;
    float percent = 0;
    std::uint64_t last_used = 0;
  };
  void Store(int pid, const ProcessCpuTimes& reading, float percent);

  mutable std::mutex mutex_;
  std::unordered_map<int, Entry> entries_;
  std::size_t capacity_;
  std::uint64_t uses_ = 0;
};

using CpuTimesReader = vemora::platform::Reading<ProcessCpuTimes> (*)(int pid);
using Wait = void (*)(int milliseconds);

// The figure for pid (above 0): with window_ms above 0, over that window,
// waited with `wait`; otherwise at once, from the history. -1 when a reading
// fails (its reader has said why), or when another process took the PID
// during the window.
float MeasureCpuUsage(int pid, int window_ms, CpuHistory& history, CpuTimesReader read, Wait wait);

}  // namespace vemora_utils
