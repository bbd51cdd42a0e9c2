// The CPU survey: brand string, architecture and vector extensions.
#pragma once

#include "system/survey_types.h"

namespace vemora::system {

// The record as far as the kernel answered; an unreadable fact keeps its
// default. May throw std::runtime_error from the platform query.
CpuInfo SurveyCpuMac();

// Success with the record, or Error with the runtime error's text and the
// default record.
CpuSurveyResult SurveyCpu();

}  // namespace vemora::system
