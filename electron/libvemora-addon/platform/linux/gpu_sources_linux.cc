// Where the add-on reads the GPUs: the NVIDIA driver's NVML, as dlopen(3)
// finds it, and the running machine's /sys.
#include "platform/linux/linux_gpus.h"

namespace vemora::platform::linux_gpus {

// The driver installs the library with its soname only; libnvidia-ml.so
// comes with a development package.
const char* const kNvmlLibrary = "libnvidia-ml.so.1";
const char* const kRoot = "";

}  // namespace vemora::platform::linux_gpus
