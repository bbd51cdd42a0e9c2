// The CPU survey, the GPU survey and the whole-hardware survey that runs both,
// each half with its own status.
#pragma once

#include "system/survey_types.h"

namespace vemora::system {

// The CPU as far as the OS answers: Success with an empty message, or Error
// with the message of a runtime error the platform query threw.
CpuSurveyResult SurveyCpu();

// Every GPU the OS's sources know, or the reason there is none.
GpuSurveyResult SurveyGpus();

// Runs the GPU survey, then the CPU survey. A half that did not succeed keeps
// its code and message beside the default payload, never partial data.
HardwareSurveyResult SurveyHardware();

}  // namespace vemora::system
