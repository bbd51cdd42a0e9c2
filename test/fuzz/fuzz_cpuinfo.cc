// The CPU model name of /proc/cpuinfo.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "check.h"
#include "platform/linux/proc_text.h"

namespace text = vemora::platform::linux_text;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view cpuinfo(reinterpret_cast<const char*>(data), size);
  const auto model = text::CpuinfoModelName(cpuinfo);
  if (!model) return 0;
  // A view into the file's text, one trimmed value on one line.
  VEMORA_FUZZ_CHECK(!model->empty());
  VEMORA_FUZZ_CHECK(Within(*model, cpuinfo));
  VEMORA_FUZZ_CHECK(model->find('\n') == std::string_view::npos);
  VEMORA_FUZZ_CHECK(model->front() != ' ' && model->front() != '\t');
  VEMORA_FUZZ_CHECK(model->back() != ' ' && model->back() != '\t' && model->back() != '\r');
  return 0;
}
