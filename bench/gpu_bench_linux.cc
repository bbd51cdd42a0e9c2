// The Linux GPU readings on the test NVML (its two GPUs, as bench/run.js
// leaves it) and on an amdgpu fixture
// tree, each alone and both together as the test-only add-on build/gpu-fake
// reads them; and what starting NVML costs the first call, on the test NVML.
#include <benchmark/benchmark.h>

#include "platform/gpu_list.h"
#include "platform/linux/linux_gpus.h"
#include "platform/nvml.h"

namespace {

namespace platform = vemora::platform;

// Started before the benchmarks run, as the add-on's is after its first call.
const platform::Nvml& TestNvml() {
  static const platform::Nvml* const nvml = new platform::Nvml(VEMORA_FAKE_NVML);
  return *nvml;
}
const platform::Nvml& kStarted = TestNvml();

// With or without the test NVML, with or without the tree.
template <auto kFact, bool kNvml, bool kTree>
void Gpus(benchmark::State& state) {
  for (auto _ : state) {
    platform::GpuList list;
    if (kNvml) kStarted.Read(&list, true);
    if (kTree) platform::linux_gpus::ReadAmdgpu(VEMORA_GPU_TREE, &list, true);
    benchmark::DoNotOptimize(kFact(list));
  }
  platform::GpuList list;
  if (kNvml) TestNvml().Read(&list, true);
  if (kNvml && list.gpus.empty()) state.SkipWithError("the test NVML lists no GPU");
}

// A fresh load: dlopen, the entry points, nvmlInit_v2; then nvmlShutdown and
// dlclose, so the next round loads it again. On the second build of the test
// NVML, which TestNvml() does not hold.
void nvml_load_and_start(benchmark::State& state) {
  for (auto _ : state) platform::Nvml nvml(VEMORA_FAKE_NVML_FRESH);
}

}  // namespace

BENCHMARK_TEMPLATE(Gpus, platform::LiveMemoryOf, true, false)
    ->Name("gpu_memory_by_device/test_nvml");
BENCHMARK_TEMPLATE(Gpus, platform::LiveMemoryOf, false, true)
    ->Name("gpu_memory_by_device/amdgpu_tree");
BENCHMARK_TEMPLATE(Gpus, platform::LiveMemoryOf, true, true)
    ->Name("gpu_memory_by_device/test_nvml+tree");
BENCHMARK_TEMPLATE(Gpus, platform::SurveyOf, true, false)->Name("survey_gpus/test_nvml");
BENCHMARK_TEMPLATE(Gpus, platform::SurveyOf, false, true)->Name("survey_gpus/amdgpu_tree");
BENCHMARK_TEMPLATE(Gpus, platform::SurveyOf, true, true)->Name("survey_gpus/test_nvml+tree");
BENCHMARK(nvml_load_and_start)->Name("nvml_load_and_start/test_nvml");
