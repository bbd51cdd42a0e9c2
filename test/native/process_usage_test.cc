// A process's memory and the CPU-usage query: PID checks, the larger of the
// two figures, and the diagnostics each failure writes.
#include "memory/process_usage.h"

#include <stdexcept>
#include <string>

#include "memory/memory_observer.h"
#include "platform_test.h"

namespace {

using vemora::platform::ProcessMemory;
using vemora::platform::Value;
using vemora_utils::MemoryObserver;

struct ProcessRow {
  std::string name;
  int pid;
  long long expected;
  std::string expected_stderr;
  bool platform_asked;
};

class ProcessUsedRam : public PlatformTestWithParam<ProcessRow> {};

TEST_P(ProcessUsedRam, Answers) {
  const ProcessRow& row = GetParam();
  script().processes[41] = Value(ProcessMemory{500'000'000, 420'000'000});
  script().processes[42] = Value(ProcessMemory{420'000'000, 500'000'000});
  long long used = 0;
  EXPECT_EQ(CaptureStderr([&] { used = MemoryObserver::getProcessUsedRAM(row.pid); }),
            row.expected_stderr);
  EXPECT_EQ(used, row.expected);
  EXPECT_EQ(!fake::calls().empty(), row.platform_asked);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ProcessUsedRam,
    ::testing::Values(
        ProcessRow{"resident_larger", 41, 500'000'000, "", true},
        ProcessRow{"footprint_larger", 42, 500'000'000, "", true},
        ProcessRow{"no_such_process", 43, -1, "Failed to retrieve resource usage for pid 43\n",
                   true},
        ProcessRow{"pid_zero", 0, -1,
                   "Failed to get used RAM for PID '0' since PID must be positive!\n", false},
        ProcessRow{"pid_negative", -5, -1,
                   "Failed to get used RAM for PID '-5' since PID must be positive!\n", false}),
    [](const auto& row_info) { return row_info.param.name; });

TEST_F(PlatformTest, CpuUsageRejectsNonPositivePidsAndIsNotMeasuredOtherwise) {
  EXPECT_EQ(CaptureStderr([] { EXPECT_EQ(vemora_utils::GetCpuUsage(0, 1000), -1.0f); }),
            "Failed to get CPU usage for PID '0' since PID must be positive!\n");
  EXPECT_EQ(CaptureStderr([] { EXPECT_EQ(vemora_utils::GetCpuUsage(-3, 0), -1.0f); }),
            "Failed to get CPU usage for PID '-3' since PID must be positive!\n");
  for (const int second : {0, 1000}) {
    std::string message;
    const std::string written = CaptureStderr([&] {
      try {
        vemora_utils::GetCpuUsage(1, second);
      } catch (const std::runtime_error& e) {
        message = e.what();
      }
    });
    EXPECT_EQ(message, "GetCpuUsage not yet implemented for Mac!");
    EXPECT_EQ(written, "");
  }
}

}  // namespace
