// What kind of machine this is, from its model identifier and, where that
// does not settle it, from whether it has an internal battery.
#pragma once

#include "system/survey_types.h"

namespace vemora::system {

// Never fails: whatever cannot be read counts as absent, and a machine about
// which nothing can be learned is Other.
DeviceType GetDeviceType();

}  // namespace vemora::system
