// The first line of a sysfs attribute.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "check.h"
#include "platform/linux/proc_text.h"

namespace text = vemora::platform::linux_text;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view attribute(reinterpret_cast<const char*>(data), size);
  const std::string_view line = text::FirstLine(attribute);
  if (line.empty()) return 0;
  VEMORA_FUZZ_CHECK(Within(line, attribute.substr(0, attribute.find('\n'))));
  VEMORA_FUZZ_CHECK(line.front() != ' ' && line.front() != '\t');
  VEMORA_FUZZ_CHECK(line.back() != ' ' && line.back() != '\t' && line.back() != '\r');
  return 0;
}
