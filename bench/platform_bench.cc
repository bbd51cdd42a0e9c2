// Every platform reading behind VemoraCore's methods, timed from C++ with no
// JavaScript in the way. bench/run.js adds the readings a method makes to the
// cost of crossing into a no-op native method: that sum is the method's floor.
//
// The diagnostics some methods must write on every call (where there is no
// Metal, say) are timed too: they are part of the work. Run with the standard
// error stream sent to /dev/null, as bench/run.js does.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "memory/diagnostics.h"
#include "platform/platform.h"

namespace {

namespace platform = vemora::platform;

constexpr std::int32_t kCpuTypeX86_64 = 0x01000007;

// The process whose status file getProcessUsedRAM reads: bench/run.js passes
// a Node process's PID, so the file is as long as the one the add-on reads.
int MeasuredPid() {
  const char* pid = std::getenv("VEMORA_BENCH_PID");
  return pid != nullptr ? std::atoi(pid) : static_cast<int>(::getpid());
}

// ---- Memory ------------------------------------------------------------------

void physical_memory_bytes(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::physical_memory_bytes());
}

void host_port(benchmark::State& state) {
  for (auto _ : state) platform::host_port_release(platform::host_port_acquire());
}

void host_page_size_bytes(benchmark::State& state) {
  const platform::HostPort port = platform::host_port_acquire();
  for (auto _ : state) benchmark::DoNotOptimize(platform::host_page_size_bytes(port));
  platform::host_port_release(port);
}

void host_vm_statistics64(benchmark::State& state) {
  const platform::HostPort port = platform::host_port_acquire();
  for (auto _ : state) benchmark::DoNotOptimize(platform::host_vm_statistics64(port));
  platform::host_port_release(port);
}

void host_vm_statistics32(benchmark::State& state) {
  const platform::HostPort port = platform::host_port_acquire();
  for (auto _ : state) benchmark::DoNotOptimize(platform::host_vm_statistics32(port));
  platform::host_port_release(port);
}

void swap_usage(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::swap_usage());
}

void process_memory(benchmark::State& state) {
  const int pid = MeasuredPid();
  for (auto _ : state) benchmark::DoNotOptimize(platform::process_memory(pid));
  if (!platform::process_memory(pid).ok()) state.SkipWithError("process_memory failed");
}

void global_user_wire_limit_bytes(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::global_user_wire_limit_bytes());
}

void metal_device(benchmark::State& state) {
  for (auto _ : state) {
    const platform::Object device = platform::metal_device_create();
    if (device != nullptr) {
      benchmark::DoNotOptimize(platform::metal_recommended_working_set_bytes(device));
      platform::metal_device_release(device);
    }
  }
}

// ---- Diagnostics ---------------------------------------------------------------

void system_log(benchmark::State& state) {
  for (auto _ : state) platform::system_log("Metal is not supported on this device");
}

void perror_line(benchmark::State& state) {
  for (auto _ : state) vemora_utils::write_errno("sysctl vm.global_user_wire_limit", ENOENT);
}

// ---- Hardware survey -------------------------------------------------------------

void gpu_host_cpu_type(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::gpu_host_cpu_type());
}

void cpu_brand_string(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::cpu_brand_string());
}

void cpu_type(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::cpu_type());
}

void cpu_avx2_flag(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(platform::cpu_avx2_flag());
}

// The model identifier as the device-type classification reads it: its
// length, then its bytes.
bool ReadHwModel() {
  const auto size = platform::hw_model_size();
  if (!size.ok() || size.value == 0) return false;
  std::vector<char> buffer(size.value, '\0');
  const auto read = platform::hw_model_read(buffer.data(), buffer.size());
  benchmark::DoNotOptimize(buffer.data());
  return read.ok() && read.value != 0;
}

void hw_model(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ReadHwModel());
}

// The registry's "model" property, the identifier's second source.
void ReadPlatformExpertModel() {
  const platform::Object service = platform::io_platform_expert_service_acquire();
  if (service == nullptr) return;
  if (const platform::Object model = platform::io_model_property_copy(service)) {
    benchmark::DoNotOptimize(platform::cf_kind(model));
    platform::cf_release(model);
  }
  platform::io_object_release(service);
}

// Every power source's "Type", compared with "InternalBattery".
bool ScanPowerSources() {
  const platform::Object info = platform::power_sources_info_copy();
  if (info == nullptr) return false;
  const platform::Object list = platform::power_sources_list_copy(info);
  if (list == nullptr) {
    platform::cf_release(info);
    return false;
  }
  bool battery = false;
  if (const platform::Object internal = platform::cf_string_create("InternalBattery")) {
    const long count = platform::power_sources_count(list);
    for (long i = 0; i < count && !battery; ++i) {
      const platform::Object source = platform::power_sources_at(list, i);
      if (source == nullptr) continue;
      const platform::Object description = platform::power_source_description(info, source);
      if (description == nullptr) continue;
      const platform::Object type = platform::power_source_type(description);
      battery = type != nullptr && platform::cf_kind(type) == platform::CfKind::kString &&
                platform::cf_string_equal(type, internal);
    }
    platform::cf_release(internal);
  }
  platform::cf_release(list);
  platform::cf_release(info);
  return battery;
}

void power_sources(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ScanPowerSources());
}

// All readings of surveyHardware where there is no Metal: the GPU survey
// stops at its platform check, the CPU survey reads the brand, the CPU type
// and, on x86_64, the AVX2 flag.
void survey_hardware_readings(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(platform::gpu_host_cpu_type());
    benchmark::DoNotOptimize(platform::cpu_brand_string());
    const auto type = platform::cpu_type();
    if (type.ok() && type.value == kCpuTypeX86_64) {
      benchmark::DoNotOptimize(platform::cpu_avx2_flag());
    }
  }
}

// All readings of getDeviceType on a machine that is not a Mac: the model
// identifier (from the registry when the first source has none), then the
// power sources, since no identifier rule settles a PC's kind.
void device_type_readings(benchmark::State& state) {
  for (auto _ : state) {
    if (!ReadHwModel()) ReadPlatformExpertModel();
    benchmark::DoNotOptimize(ScanPowerSources());
  }
}

template <typename Fn>
void Register(const char* name, Fn fn) {
  benchmark::RegisterBenchmark(name, fn);
}

}  // namespace

int main(int argc, char** argv) {
  Register("physical_memory_bytes", physical_memory_bytes);
  Register("host_port", host_port);
  Register("host_page_size_bytes", host_page_size_bytes);
  Register("host_vm_statistics64", host_vm_statistics64);
  Register("host_vm_statistics32", host_vm_statistics32);
  Register("swap_usage", swap_usage);
  Register("process_memory", process_memory);
  Register("global_user_wire_limit_bytes", global_user_wire_limit_bytes);
  Register("metal_device", metal_device);
  Register("system_log", system_log);
  Register("perror", perror_line);

  Register("gpu_host_cpu_type", gpu_host_cpu_type);
  Register("cpu_brand_string", cpu_brand_string);
  Register("cpu_type", cpu_type);
  Register("cpu_avx2_flag", cpu_avx2_flag);
  Register("survey_hardware_readings", survey_hardware_readings);
  Register("hw_model", hw_model);
  Register("power_sources", power_sources);
  Register("device_type_readings", device_type_readings);

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
