// The GPUs as DXGI lists them, one reading per hardware adapter, in the
// shared GPU list (platform/gpu_list.h) that makes the survey, the report and
// the sums.
#pragma once

#include <cstdint>

#include "platform/gpu_list.h"

namespace vemora::platform::windows_gpu {

// Every hardware adapter once, in DXGI's order: the Basic Render Driver and
// a second entry with the same LUID are left out. Each has its dedicated
// memory as its own and no free figure: QueryVideoMemoryInfo is a budget for
// the calling process, not the device's. A failure, or no adapter, is a note.
GpuList ReadDxgiAdapters();

// Integrated or discrete from the PCI vendor and the dedicated memory.
system::GpuIntegrationType ClassifyAdapter(std::uint32_t vendor_id,
                                           std::uint64_t dedicated_video_bytes);

}  // namespace vemora::platform::windows_gpu
