// /proc/cpuinfo: the CPU's name is one trimmed value from one line, and
// avx2 is found only on a flags line that lists it as a whole word.
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/proc_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view cpuinfo(reinterpret_cast<const char*>(data), size);
  const auto facts = vemora::platform::linux_text::ParseCpuinfo(cpuinfo);
  if (facts.name) {
    VEMORA_FUZZ_CHECK(TrimmedWithin(*facts.name, cpuinfo) &&
                      facts.name->find('\n') == facts.name->npos);
  }
  if (facts.avx2) VEMORA_FUZZ_CHECK(facts.has_flags && cpuinfo.find("avx2") != cpuinfo.npos);
  return 0;
}
