// Every platform fact behind VemoraCore's methods, timed from C++ with no
// JavaScript in the way. bench/run.js adds the facts a method asks for to the
// cost of crossing into a no-op native method: that sum is the method's floor.
//
// The diagnostics some facts must write on every call (where there is no GPU
// source, say) are timed too: they are part of the work. Run with the standard
// error stream sent to /dev/null, as bench/run.js does.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/platform.h"
#include "system/device_type.h"

namespace {

namespace platform = vemora::platform;

// The process whose status file getProcessUsedRAM reads: bench/run.js passes
// a Node process's PID, so the file is as long as the one the add-on reads.
int MeasuredPid() {
  const char* pid = std::getenv("VEMORA_BENCH_PID");
  return pid != nullptr ? std::atoi(pid) : static_cast<int>(::getpid());
}

template <auto kFact>
void Fact(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kFact());
}

void process_memory(benchmark::State& state) {
  const int pid = MeasuredPid();
  for (auto _ : state) benchmark::DoNotOptimize(platform::process_memory(pid));
  if (!platform::process_memory(pid).ok()) state.SkipWithError("process_memory failed");
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("physical_memory_bytes", Fact<platform::physical_memory_bytes>);
  benchmark::RegisterBenchmark("available_memory_bytes", Fact<platform::available_memory_bytes>);
  benchmark::RegisterBenchmark("allocatable_memory_bytes",
                               Fact<platform::allocatable_memory_bytes>);
  benchmark::RegisterBenchmark("swap_usage", Fact<platform::swap_usage>);
  benchmark::RegisterBenchmark("process_memory", process_memory);
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
