// The first line of a sysfs attribute, trimmed.
#include "check.h"

VEMORA_FUZZ_TARGET(attribute) {
  const std::string_view line = text::FirstLine(attribute);
  if (!line.empty())
    VEMORA_FUZZ_CHECK(TrimmedWithin(line, attribute.substr(0, attribute.find('\n'))));
}
