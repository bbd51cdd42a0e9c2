// /proc/cpuinfo: the CPU's name is one trimmed value from one line, and
// avx2 is found only on a flags line that lists it as a whole word.
#include "check.h"

VEMORA_FUZZ_TARGET(cpuinfo) {
  const auto facts = text::ParseCpuinfo(cpuinfo);
  if (facts.name) {
    VEMORA_FUZZ_CHECK(TrimmedWithin(*facts.name, cpuinfo) &&
                      facts.name->find('\n') == facts.name->npos);
  }
  if (facts.avx2) VEMORA_FUZZ_CHECK(facts.has_flags && cpuinfo.find("avx2") != cpuinfo.npos);
}
