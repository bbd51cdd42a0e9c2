// NVIDIA's management library (NVML), loaded at run time: the GPUs that the
// NVIDIA driver drives, with their memory, names and PCI addresses. Written on
// the library seam only, so every OS with an NVIDIA driver shares it; the
// library's name is the caller's ("libnvidia-ml.so.1", "nvml.dll", a test's).
// Entry points, structures and codes are declared here from NVIDIA's public
// NVML reference; no NVIDIA header is used.
#pragma once

#include <memory>
#include <string>

#include "platform/gpu_list.h"

namespace vemora::platform {

class Nvml {
 public:
  // Loads the library and starts NVML (nvmlInit_v2): the costly step, which
  // opens the driver. A library that cannot be loaded, lacks an entry point
  // or does not start leaves the session unusable, and says why.
  explicit Nvml(const char* library);
  ~Nvml();
  Nvml(const Nvml&) = delete;
  Nvml& operator=(const Nvml&) = delete;

  // Appends every GPU NVML lists to list->gpus, its memory asked now, or a
  // note when there is none or NVML cannot be used. With `describe`, also
  // the versions and otherInfo facts the survey shows. NVML's calls are
  // thread-safe, and so is this.
  void Read(GpuList* list, bool describe) const;

  struct Api;

 private:
  void* library_ = nullptr;
  std::unique_ptr<Api> api_;
  GpuList::Note problem_;
};

}  // namespace vemora::platform
