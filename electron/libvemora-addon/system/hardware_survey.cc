#include "system/hardware_survey.h"

#include "system/cpu_survey.h"
#include "system/gpu_survey.h"

namespace vemora::system {

HardwareSurveyResult SurveyHardware() {
  HardwareSurveyResult survey;

  auto gpus = SurveyGpus();
  if (gpus.first.code == ResultCode::Success) {
    survey.gpuSurveyResult = std::move(gpus);
  } else {
    survey.gpuSurveyResult = {std::move(gpus.first), {}};
  }

  auto cpu = SurveyCpu();
  if (cpu.first.code == ResultCode::Success) {
    survey.cpuSurveyResult = std::move(cpu);
  } else {
    survey.cpuSurveyResult = {std::move(cpu.first), CpuInfo{}};
  }
  return survey;
}

}  // namespace vemora::system
