// The GPU survey: the one integrated GPU of an Apple-silicon Mac, found
// through Metal, or no GPU at all.
#pragma once

#include "system/survey_types.h"

namespace vemora::system {

// What Metal and the kernel tell about the default device; each fact absent
// when it could not be had.
MetalGpuInfo QueryMetalGpuInfo();

// Success with exactly one record on 64-bit ARM, NoDevicesFound with none
// elsewhere.
GpuSurveyResult SurveyGpus();

}  // namespace vemora::system
