// Where the test-only add-on reads the GPUs: the test NVML and a fixture
// tree, both named by the build. Linked in place of gpu_sources_linux.cc.
#include "platform/linux/linux_gpus.h"

namespace vemora::platform::linux_gpus {

const char* const kNvmlLibrary = VEMORA_FAKE_NVML;
const char* const kRoot = VEMORA_GPU_ROOT;

}  // namespace vemora::platform::linux_gpus
