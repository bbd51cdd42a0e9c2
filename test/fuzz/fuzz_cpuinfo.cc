// The CPU model name of /proc/cpuinfo: one trimmed value from one line.
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/proc_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view cpuinfo(reinterpret_cast<const char*>(data), size);
  const auto model = vemora::platform::linux_text::CpuinfoModelName(cpuinfo);
  if (model) VEMORA_FUZZ_CHECK(TrimmedWithin(*model, cpuinfo) && model->find('\n') == model->npos);
  return 0;
}
