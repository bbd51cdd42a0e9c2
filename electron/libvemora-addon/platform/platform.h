// The facts the add-on's logic asks of the operating system, in neutral
// terms: bytes, names, an architecture, a list of GPUs. Exactly one
// implementation is linked, chosen by CMake: platform/darwin, platform/linux
// or platform/windows, each answering from its own OS's sources. Every fact
// is asked at the moment of the call; nothing is cached.
//
// A fact that cannot be had answers a failure with the OS's error code, after
// writing its one diagnostic line in the OS's own terms (the call or file that
// failed). The logic above never writes a second line for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "system/survey_types.h"

namespace vemora::platform {

// A value, or its failure. `error` is 0 on success; on failure it is the code
// of the call that failed (an errno value, a Mach kern_return_t, a Windows
// error), or -1 where no single call's code says it (a figure out of range,
// a fact made of several calls). Callers test ok(); the code is for tests and
// for the one diagnostic line, already written.
template <typename T>
struct Reading {
  T value{};
  int error = 0;
  bool ok() const { return error == 0; }
};

template <typename T>
Reading<T> Value(T value) {
  return Reading<T>{value, 0};
}
template <typename T>
Reading<T> Failure(int error) {
  return Reading<T>{T{}, error};
}

// ---- Memory of the machine ----------------------------------------------------

Reading<std::uint64_t> physical_memory_bytes();
// What new allocations can get now without paging anything out.
Reading<std::uint64_t> available_memory_bytes();
// The available memory as the allocation check counts it. It is the same
// figure as available_memory_bytes() except where the OS keeps two sets of
// counters (macOS: the 32-bit VM statistics).
Reading<std::uint64_t> allocatable_memory_bytes();

struct SwapUsage {
  std::uint64_t total_bytes = 0;
  std::uint64_t used_bytes = 0;
};
// The swap space, or the page file beyond the physical memory.
Reading<SwapUsage> swap_usage();

// ---- A process ----------------------------------------------------------------

// What the OS counts for a process: the pages it has in RAM, and what it
// holds of its own, in RAM or paged out (its footprint, private bytes).
struct ProcessMemory {
  std::uint64_t resident_bytes = 0;
  std::uint64_t footprint_bytes = 0;
};
// pid is above 0.
Reading<ProcessMemory> process_memory(int pid);

// What the OS has counted of a process's CPU time, summed over its threads,
// with when it started and when the reading was taken. start_ns and
// read_at_ns are on one clock of the OS's choosing (Linux: since boot;
// Windows: since 1601), so only differences mean anything; a PID that comes
// back with another start time belongs to another process.
struct ProcessCpuTimes {
  std::uint64_t user_ns = 0;
  std::uint64_t system_ns = 0;
  std::uint64_t start_ns = 0;
  std::uint64_t read_at_ns = 0;
};
// pid is above 0. A process that has ended (a zombie too) is a failure.
// Throws std::runtime_error where the OS's figure is not measured (macOS).
Reading<ProcessCpuTimes> process_cpu_times(int pid);

// ---- GPU memory ---------------------------------------------------------------

// The memory the machine's GPUs may use: on unified memory, the GPU's working
// set; with GPUs of their own, their memory summed.
Reading<std::uint64_t> gpu_memory_bytes();
// The part of it free at this moment.
Reading<std::uint64_t> gpu_available_memory_bytes();
// Each GPU's total and free memory, with an overall status.
system::GpuLiveMemoryReport gpu_memory_by_device();

// ---- Hardware -------------------------------------------------------------------

// The GPUs, each with its status and the sources tried when there is none.
system::GpuSurveyResult survey_gpus();
// The CPU's name, architecture and vector extensions, as far as the OS
// answers. May throw std::runtime_error, which the CPU survey reports.
system::CpuInfo cpu_info();
// The machine's model identifier ("Mac14,6", "ThinkPad X1 Carbon"), when
// the firmware or the OS gives one.
std::optional<std::string> model_identifier();
// Whether the machine has a battery of its own (not a peripheral's, not a UPS).
bool has_internal_battery();

}  // namespace vemora::platform
