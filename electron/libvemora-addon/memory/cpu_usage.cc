#include "memory/cpu_usage.h"

#include <algorithm>
#include <limits>
#include <string>

#include "platform/diagnostics.h"

namespace vemora_utils {
namespace {

std::uint64_t CpuNs(const ProcessCpuTimes& times) {
  const std::uint64_t max = std::numeric_limits<std::uint64_t>::max();
  return times.user_ns > max - times.system_ns ? max : times.user_ns + times.system_ns;
}

float Percent(std::uint64_t cpu_ns, std::uint64_t elapsed_ns) {
  return static_cast<float>(static_cast<double>(cpu_ns) * 100.0 / static_cast<double>(elapsed_ns));
}

}  // namespace

std::optional<float> CpuPercentBetween(const ProcessCpuTimes& earlier,
                                       const ProcessCpuTimes& later) {
  if (later.read_at_ns <= earlier.read_at_ns || CpuNs(later) < CpuNs(earlier)) return std::nullopt;
  return Percent(CpuNs(later) - CpuNs(earlier), later.read_at_ns - earlier.read_at_ns);
}

float CpuPercentOverLifetime(const ProcessCpuTimes& now) {
  if (now.read_at_ns <= now.start_ns) return 0;
  return Percent(CpuNs(now), now.read_at_ns - now.start_ns);
}

float CpuHistory::Measure(int pid, const ProcessCpuTimes& now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(pid);
  if (found != entries_.end() && found->second.reading.start_ns == now.start_ns) {
    Entry& kept = found->second;
    kept.last_used = ++uses_;
    const std::uint64_t kept_at = kept.reading.read_at_ns;
    // A reading a little older than the kept one is another thread's,
    // taken before it; one much older means the clock was set back.
    const bool clock_set_back =
        kept_at > now.read_at_ns && kept_at - now.read_at_ns > kMinimumWindowNs;
    if (!clock_set_back && now.read_at_ns < kept_at + kMinimumWindowNs) return kept.percent;
    if (const auto between = CpuPercentBetween(kept.reading, now)) {
      kept.reading = now;
      kept.percent = *between;
      return *between;
    }
  }
  // Never measured, or a new process under an old PID, or readings that
  // cannot be compared: start over from the lifetime.
  const float lifetime = CpuPercentOverLifetime(now);
  Store(pid, now, lifetime);
  return lifetime;
}

void CpuHistory::Keep(int pid, const ProcessCpuTimes& now, float percent) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(pid);
  if (found != entries_.end() && found->second.reading.start_ns == now.start_ns &&
      found->second.reading.read_at_ns > now.read_at_ns) {
    return;
  }
  Store(pid, now, percent);
}

void CpuHistory::Forget(int pid) {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.erase(pid);
}

std::size_t CpuHistory::size() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

// Called with mutex_ held.
void CpuHistory::Store(int pid, const ProcessCpuTimes& reading, float percent) {
  if (capacity_ == 0) return;
  if (entries_.size() >= capacity_ && entries_.find(pid) == entries_.end()) {
    // Scanned only when full and a new process comes: cheaper than keeping
    // a use-ordered list on every call.
    entries_.erase(std::min_element(
        entries_.begin(), entries_.end(),
        [](const auto& a, const auto& b) { return a.second.last_used < b.second.last_used; }));
  }
  entries_[pid] = Entry{reading, percent, ++uses_};
}

float MeasureCpuUsage(int pid, int window_ms, CpuHistory& history, CpuTimesReader read, Wait wait) {
  const auto first = read(pid);
  if (!first.ok()) {
    history.Forget(pid);
    return -1.0f;
  }
  if (window_ms <= 0) return history.Measure(pid, first.value);
  wait(window_ms);
  const auto second = read(pid);
  if (!second.ok()) {
    history.Forget(pid);
    return -1.0f;
  }
  if (second.value.start_ns != first.value.start_ns) {
    history.Forget(pid);
    vemora::platform::WritePidFailure("CPU usage", pid,
                                      "another process took that PID during the window!");
    return -1.0f;
  }
  const auto percent = CpuPercentBetween(first.value, second.value);
  if (!percent) {
    vemora::platform::WritePidFailure("CPU usage", pid,
                                      "its clock or CPU time went back during the window!");
    return -1.0f;
  }
  history.Keep(pid, second.value, *percent);
  return *percent;
}

}  // namespace vemora_utils
