// The amdgpu texts, all on one input: a uevent's values are whole lines'
// tails, a count is digits only, and a name from amdgpu.ids is one trimmed
// field of one line. The first four bytes choose the device id and revision
// looked up.
#include "check.h"

static bool OneLineWithin(std::string_view value, std::string_view input) {
  return value.empty() || (value.data() >= input.data() &&
                           value.data() + value.size() <= input.data() + input.size() &&
                           value.find('\n') == value.npos);
}

VEMORA_FUZZ_TARGET(input) {
  const auto uevent = text::ParsePciUevent(input);
  VEMORA_FUZZ_CHECK(OneLineWithin(uevent.driver, input) && OneLineWithin(uevent.pci_id, input) &&
                    OneLineWithin(uevent.slot, input));
  if (text::ParseCount(input)) {
    const std::string_view line = text::FirstLine(input);
    VEMORA_FUZZ_CHECK(!line.empty() && line.find_first_not_of("0123456789") == line.npos);
  }
  text::ParseHexId(input);
  if (text::IsDrmCard(input)) VEMORA_FUZZ_CHECK(input.size() > 4 && input.substr(0, 4) == "card");
  if (input.size() >= 4) {
    const auto name = text::AmdgpuIdsName(input.substr(4), data[0] << 8 | data[1], data[2]);
    if (name) VEMORA_FUZZ_CHECK(TrimmedWithin(*name, input) && name->find('\n') == name->npos);
  }
}
