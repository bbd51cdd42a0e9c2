// The GPUs of a Linux machine: NVIDIA's through NVML, AMD's through the
// amdgpu driver's sysfs files, read under a root directory ("" for the
// running machine, a fixture tree in tests).
#pragma once

#include "platform/gpu_list.h"
#include "platform/nvml.h"

namespace vemora::platform::linux_gpus {

// Where this build reads them: NVIDIA's library and the machine's root in the
// add-on (gpu_sources_linux.cc); a test NVML and a fixture tree in the
// test-only add-on, which links its own definitions.
extern const char* const kNvmlLibrary;
extern const char* const kRoot;

// Appends every card under /sys/class/drm that amdgpu drives, in PCI slot
// order, or a note naming what was there instead. With `describe`, also its
// product name, driver version and PCI facts; without, a name from its PCI ids.
void ReadAmdgpu(const char* root, GpuList* list, bool describe);

// NVML's GPUs, then amdgpu's. A GPU is in at most one of them: NVML lists
// only what NVIDIA's driver drives, and only amdgpu's cards are read here.
GpuList ReadGpus(const Nvml& nvml, const char* root, bool describe);

}  // namespace vemora::platform::linux_gpus
