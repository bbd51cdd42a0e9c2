// The whole-hardware survey: the GPU and the CPU surveys, each half with its
// own status.
#pragma once

#include "system/survey_types.h"

namespace vemora::system {

// Runs the GPU survey, then the CPU survey. A half that did not succeed keeps
// its code and message beside the default payload, never partial data.
HardwareSurveyResult SurveyHardware();

}  // namespace vemora::system
