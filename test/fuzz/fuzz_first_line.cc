// The first line of a sysfs attribute, trimmed.
#include <cstddef>
#include <cstdint>

#include "check.h"
#include "platform/linux/proc_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view attribute(reinterpret_cast<const char*>(data), size);
  const std::string_view line = vemora::platform::linux_text::FirstLine(attribute);
  if (!line.empty())
    VEMORA_FUZZ_CHECK(TrimmedWithin(line, attribute.substr(0, attribute.find('\n'))));
  return 0;
}
