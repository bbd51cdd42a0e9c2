// Every platform fact behind VemoraCore's methods, timed from C++ with no
// JavaScript in the way. bench/run.js adds the facts a method asks for to the
// cost of crossing into a no-op native method: that sum is the method's floor.
//
// The diagnostics some facts must write on every call (where there is no GPU
// source, say) are timed too: they are part of the work. Run with the standard
// error stream sent to /dev/null, as bench/run.js does. Beside them, the bare
// read of a /proc/<pid>/stat file, the least any reader of it pays.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/platform.h"
#include "system/device_type.h"

namespace {

namespace platform = vemora::platform;

// The processes the add-on's process readings read: bench/run.js passes a
// Node process's PID (VEMORA_BENCH_PID), so the files are as long as the
// ones the add-on reads, and another process's (VEMORA_BENCH_OTHER_PID).
int PidFrom(const char* variable) {
  const char* pid = std::getenv(variable);
  return pid != nullptr ? std::atoi(pid) : static_cast<int>(::getpid());
}

template <auto kFact>
void Fact(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kFact());
}

template <auto kFact>
void ProcessFact(benchmark::State& state, const char* variable) {
  const int pid = PidFrom(variable);
  for (auto _ : state) benchmark::DoNotOptimize(kFact(pid));
  if (!kFact(pid).ok()) state.SkipWithError("the reading failed");
}

// What any reader of /proc/<pid>/stat pays before parsing: open, read, close.
void ReadProcStat(benchmark::State& state, const char* variable) {
  const std::string path = "/proc/" + std::to_string(PidFrom(variable)) + "/stat";
  char text[4096];
  for (auto _ : state) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(::read(fd, text, sizeof text));
    ::close(fd);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("physical_memory_bytes", Fact<platform::physical_memory_bytes>);
  benchmark::RegisterBenchmark("available_memory_bytes", Fact<platform::available_memory_bytes>);
  benchmark::RegisterBenchmark("allocatable_memory_bytes",
                               Fact<platform::allocatable_memory_bytes>);
  benchmark::RegisterBenchmark("swap_usage", Fact<platform::swap_usage>);
  benchmark::RegisterBenchmark("process_memory", ProcessFact<platform::process_memory>,
                               "VEMORA_BENCH_PID");
  benchmark::RegisterBenchmark("process_cpu_times", ProcessFact<platform::process_cpu_times>,
                               "VEMORA_BENCH_PID");
  benchmark::RegisterBenchmark("process_cpu_times(other)", ProcessFact<platform::process_cpu_times>,
                               "VEMORA_BENCH_OTHER_PID");
  benchmark::RegisterBenchmark("read_proc_stat", ReadProcStat, "VEMORA_BENCH_PID");
  benchmark::RegisterBenchmark("read_proc_stat(other)", ReadProcStat, "VEMORA_BENCH_OTHER_PID");
  benchmark::RegisterBenchmark("gpu_memory_bytes", Fact<platform::gpu_memory_bytes>);
  benchmark::RegisterBenchmark("gpu_available_memory_bytes",
                               Fact<platform::gpu_available_memory_bytes>);
  benchmark::RegisterBenchmark("gpu_memory_by_device", Fact<platform::gpu_memory_by_device>);
  benchmark::RegisterBenchmark("survey_gpus", Fact<platform::survey_gpus>);
  benchmark::RegisterBenchmark("cpu_info", Fact<platform::cpu_info>);
  // The classification itself, with the facts it asks for.
  benchmark::RegisterBenchmark("device_type", Fact<vemora::system::GetDeviceType>);

  // The first GPU call loads and starts the vendor's library (NVML on Linux),
  // once per process: timed apart (nvml_load_and_start), not in the samples.
  platform::gpu_memory_by_device();

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
