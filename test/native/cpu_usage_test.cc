// The CPU figure from scripted readings of process 42, in milliseconds: what
// each call answers, what it writes, how long it waits and what it keeps.
#include "memory/cpu_usage.h"

#include <cerrno>
#include <thread>
#include <tuple>

#include "platform_test.h"

namespace {

using vemora::platform::ProcessCpuTimes;
using vemora::platform::Reading;
using vemora::platform::Value;
using vemora_utils::CpuHistory;

constexpr std::uint64_t kMs = 1'000'000;
Reading<ProcessCpuTimes> At(std::uint64_t user_ms, std::uint64_t system_ms, std::uint64_t start_ms,
                            std::uint64_t at_ms) {
  return Value(ProcessCpuTimes{user_ms * kMs, system_ms * kMs, start_ms * kMs, at_ms * kMs});
}
const Reading<ProcessCpuTimes> kEnded = vemora::platform::Failure<ProcessCpuTimes>(ESRCH);

// The readings the scripted reader hands out, in order, and the waits asked.
std::vector<Reading<ProcessCpuTimes>> readings;
std::size_t next_reading = 0;
std::vector<int> waits;
Reading<ProcessCpuTimes> Scripted(int) {
  return next_reading < readings.size() ? readings[next_reading++] : kEnded;
}
void Waited(int ms) { waits.push_back(ms); }

struct Call {
  int window_ms;
  std::vector<Reading<ProcessCpuTimes>> readings;
  float expected;
};
struct Row {
  const char* name;
  std::vector<Call> calls;
  const char* diagnostics;
  std::size_t kept_after;
};
class CpuUsage : public ::testing::TestWithParam<Row> {};

TEST_P(CpuUsage, FiguresDiagnosticsAndHistory) {
  CpuHistory history(8);
  std::vector<int> expected_waits;
  waits.clear();
  const std::string said = CaptureStderr([&] {
    for (const Call& call : GetParam().calls) {
      readings = call.readings;
      next_reading = 0;
      EXPECT_NEAR(vemora_utils::MeasureCpuUsage(42, call.window_ms, history, Scripted, Waited),
                  call.expected, 1e-3);
      // A window is waited only once the first reading has succeeded.
      if (call.window_ms > 0 && call.readings.front().ok())
        expected_waits.push_back(call.window_ms);
    }
  });
  EXPECT_EQ(std::tie(said, waits), std::tie(GetParam().diagnostics, expected_waits));
  EXPECT_EQ(history.size(), GetParam().kept_after);
}

constexpr const char* kTaken =
    "Failed to get CPU usage for PID '42' since another process took that PID during the window!\n";
constexpr const char* kWentBack =
    "Failed to get CPU usage for PID '42' since its clock or CPU time went back during the "
    "window!\n";

// clang-format off
const Row kRows[] = {
    {"lifetime_of_a_process_not_measurably_old", {{0, {At(0, 10, 1000, 1000)}, 0}}, "", 1},
    // The lifetime; 50 ms later that figure again; 100 ms later the average since the first.
    {"within_the_minimum_window_the_last_figure", {{0, {At(300, 100, 1000, 2000)}, 40},
                                                   {0, {At(350, 100, 1000, 2050)}, 40},
                                                   {0, {At(400, 100, 1000, 2100)}, 100}}, "", 1},
    // Compared with the old process's times it would read 60.
    {"pid_reused_by_a_later_process_reads_its_lifetime", {{0, {At(1000, 500, 1000, 2510)}, 99.338},
                                      {0, {At(3000, 3000, 4000, 10000)}, 100}}, "", 1},
    {"clock_set_back_starts_over", {{0, {At(0, 0, 1000, 5000)}, 0}, {0, {At(200, 0, 1000, 3000)}, 10}}, "", 1},
    {"cpu_time_went_back_starts_over", {{0, {At(500, 0, 1000, 2000)}, 50}, {0, {At(100, 0, 1000, 3000)}, 5}}, "", 1},
    {"window_average_and_its_end_kept_for_the_next_call", {{500, {At(0, 0, 1000, 2000), At(400, 50, 1000, 2500)}, 90},
                                              {0, {At(400, 100, 1000, 2550)}, 90},
                                              {0, {At(500, 100, 1000, 3000)}, 30}}, "", 1},
    {"no_such_process_waits_nothing", {{1000, {kEnded}, -1}}, "", 0},
    {"ended_during_the_window_is_forgotten", {{0, {At(0, 0, 1000, 2000)}, 0},
                                              {500, {At(0, 0, 1000, 2000), kEnded}, -1}}, "", 0},
    {"pid_taken_during_the_window", {{500, {At(0, 0, 1000, 2000), At(10, 0, 2400, 2500)}, -1}}, kTaken, 0},
    {"clock_back_during_the_window", {{500, {At(0, 0, 1000, 2000), At(10, 0, 1000, 1500)}, -1}}, kWentBack, 0},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, CpuUsage, ::testing::ValuesIn(kRows), ByName);

// Full: the process measured least recently goes, and its next call starts
// over from its lifetime.
TEST(CpuHistoryBound, ForgetsTheLeastRecentlyMeasured) {
  CpuHistory history(2);
  history.Measure(1, At(0, 0, 0, 1000).value);
  history.Measure(2, At(0, 0, 0, 1000).value);
  history.Measure(1, At(0, 0, 0, 1050).value);
  history.Measure(3, At(0, 0, 0, 1000).value);
  EXPECT_FLOAT_EQ(history.Measure(1, At(100, 0, 0, 1100).value), 100);          // since 1000
  EXPECT_FLOAT_EQ(history.Measure(2, At(100, 0, 0, 1100).value), 100.0f / 11);  // its lifetime
}

// Many threads, more processes than places, every process at 50% however
// its readings are paired: every figure is 50, and the bound holds.
TEST(CpuHistoryBound, SharedBetweenThreads) {
  CpuHistory history(16);
  std::vector<std::thread> threads;
  std::vector<float> worst(8, 50);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&history, &worst, t] {
      for (std::uint64_t i = 1; i <= 2000; ++i) {
        const int pid = static_cast<int>((i * 7 + t) % 64) + 1;
        const float figure = history.Measure(pid, At(i * 50, 0, 0, i * 100).value);
        if (figure != 50) worst[t] = figure;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(worst, std::vector<float>(8, 50));
  EXPECT_LE(history.size(), 16u);
}

}  // namespace
