#include "system/hardware_survey.h"

#include <stdexcept>

#include "platform/platform.h"

namespace vemora::system {

CpuSurveyResult SurveyCpu() {
  try {
    return {Result{ResultCode::Success, ""}, platform::cpu_info()};
  } catch (const std::runtime_error& error) {
    return {Result{ResultCode::Error, error.what()}, CpuInfo{}};
  }
}

GpuSurveyResult SurveyGpus() { return platform::survey_gpus(); }

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
