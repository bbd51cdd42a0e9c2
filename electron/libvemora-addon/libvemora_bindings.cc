// The Node-API face of the add-on: module registration, the VemoraCore class
// with its twelve static properties, argument checks, and the conversions of
// native results into fresh JavaScript values.
#include <napi.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "memory/memory_observer.h"
#include "memory/process_usage.h"
#include "system/device_type.h"
#include "system/hardware_survey.h"
#include "system/survey_types.h"

namespace {

using vemora::system::CpuInfo;
using vemora::system::GpuInfo;
using vemora::system::HardwareSurveyResult;
using vemora::system::Result;

vemora_utils::MemoryObserver memObserver;

// Each environment (the main thread, every worker) keeps its own reference to
// its own class function, released when that environment is torn down.
struct AddonData {
  Napi::FunctionReference constructor;
};

Napi::Value ThrowTypeError(const Napi::Env& env, const char* message) {
  Napi::TypeError::New(env, message).ThrowAsJavaScriptException();
  return env.Null();
}

Napi::Number BytesToJS(const Napi::Env& env, long long bytes) {
  return Napi::Number::New(env, static_cast<double>(bytes));
}

Napi::Object ResultToJS(const Napi::Env& env, const Result& result) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("code", Napi::String::New(env, vemora::system::ResultCodeToStr(result.code)));
  object.Set("message", Napi::String::New(env, result.message));
  return object;
}

Napi::Number UnsignedBytesToJS(const Napi::Env& env, std::uint64_t bytes) {
  return Napi::Number::New(env, static_cast<double>(bytes));
}

Napi::Object GpuInfoToJS(const Napi::Env& env, const GpuInfo& gpu) {
  using vemora::system::GpuDetectionPlatformToStr;
  using vemora::system::GpuIntegrationTypeToStr;
  Napi::Object object = Napi::Object::New(env);
  object.Set("name", Napi::String::New(env, gpu.name));
  object.Set("deviceId", Napi::Number::New(env, gpu.deviceId));
  object.Set("totalMemoryCapacityBytes", UnsignedBytesToJS(env, gpu.totalMemoryCapacityBytes));
  object.Set("dedicatedMemoryCapacityBytes",
             UnsignedBytesToJS(env, gpu.dedicatedMemoryCapacityBytes));
  object.Set("integrationType",
             Napi::String::New(env, GpuIntegrationTypeToStr(gpu.integrationType)));
  object.Set("detectionPlatform",
             Napi::String::New(env, GpuDetectionPlatformToStr(gpu.detectionPlatform)));
  object.Set("detectionPlatformVersion", Napi::String::New(env, gpu.detectionPlatformVersion));
  // The keys come from data, so they are set as values, not as named keys.
  Napi::Object other_info = Napi::Object::New(env);
  for (const auto& [key, value] : gpu.otherInfo) {
    Napi::String js_key = Napi::String::New(env, key);
    Napi::String js_value = Napi::String::New(env, value);
    other_info.Set(js_key, js_value);
  }
  object.Set("otherInfo", other_info);
  return object;
}

Napi::Object CpuInfoToJS(const Napi::Env& env, const CpuInfo& cpu) {
  Napi::Object object = Napi::Object::New(env);
  object.Set("name", Napi::String::New(env, cpu.name));
  object.Set("architecture",
             Napi::String::New(env, vemora::system::CpuArchitectureToStr(cpu.architecture)));
  Napi::Array extensions = Napi::Array::New(env);
  std::uint32_t index = 0;
  for (const auto extension : cpu.supportedInstructionSetExtensions) {
    extensions.Set(index++, Napi::String::New(
                                env, vemora::system::CpuInstructionSetExtensionToStr(extension)));
  }
  object.Set("supportedInstructionSetExtensions", extensions);
  return object;
}

Napi::Object HardwareSurveyResultToJS(const Napi::Env& env, const HardwareSurveyResult& hsr) {
  Napi::Object survey = Napi::Object::New(env);
  Napi::Array gpu_infos = Napi::Array::New(env);
  const auto& [gpu_result, gpus] = hsr.gpuSurveyResult;
  Napi::Object gpu_result_js = ResultToJS(env, gpu_result);
  std::uint32_t index = 0;
  for (const GpuInfo& gpu : gpus) gpu_infos.Set(index++, GpuInfoToJS(env, gpu));
  Napi::Object gpu_half = Napi::Object::New(env);
  gpu_half.Set("result", gpu_result_js);
  gpu_half.Set("gpuInfo", gpu_infos);
  survey.Set("gpuSurveyResult", gpu_half);

  const auto& [cpu_result, cpu] = hsr.cpuSurveyResult;
  Napi::Object cpu_info_js = CpuInfoToJS(env, cpu);
  Napi::Object cpu_result_js = ResultToJS(env, cpu_result);
  Napi::Object cpu_half = Napi::Object::New(env);
  cpu_half.Set("result", cpu_result_js);
  cpu_half.Set("cpuInfo", cpu_info_js);
  survey.Set("cpuSurveyResult", cpu_half);
  return survey;
}

}  // namespace

class VemoraCoreWrapper : public Napi::ObjectWrap<VemoraCoreWrapper> {
 public:
  static Napi::Object Init(Napi::Env env, Napi::Object exports);
  explicit VemoraCoreWrapper(const Napi::CallbackInfo& info);

 private:
  // A static method: a function named after the class, as node-addon-api
  // names them, made without separate callback data. That data would leak if
  // a worker were torn down while the class is being defined.
  template <Napi::Function::Callback Handler>
  static Napi::ClassPropertyDescriptor<VemoraCoreWrapper> Method(Napi::Env env, const char* name) {
    return StaticValue(name, Napi::Function::New<Handler>(env, "VemoraCore"));
  }

  static Napi::Value GetCpuUsage(const Napi::CallbackInfo& info);
  static Napi::Value GetMachinePhysicalRAM(const Napi::CallbackInfo& info);
  static Napi::Value GetAvailableRAM(const Napi::CallbackInfo& info);
  static Napi::Value GetMachinePhysicalVRAM(const Napi::CallbackInfo& info);
  static Napi::Value GetAvailableVRAM(const Napi::CallbackInfo& info);
  static Napi::Value GetAvailableVRAMByDevice(const Napi::CallbackInfo& info);
  static Napi::Value GetProcessUsedRAM(const Napi::CallbackInfo& info);
  static Napi::Value WillFailToAllocate(const Napi::CallbackInfo& info);
  static Napi::Value SurveyHardware(const Napi::CallbackInfo& info);
  static Napi::Value GetDeviceType(const Napi::CallbackInfo& info);
};

Napi::Object VemoraCoreWrapper::Init(Napi::Env env, Napi::Object exports) {
  Napi::HandleScope scope(env);
  Napi::Function vemora_core = DefineClass(
      env, "VemoraCore",
      {
          Method<&VemoraCoreWrapper::GetCpuUsage>(env, "getCpuUsage"),
          StaticValue("CPU_USAGE_ERROR_CODE", Napi::Number::New(env, -1.0)),
          StaticValue("RAM_METER_ERROR_CODE", Napi::Number::New(env, -1.0)),
          Method<&VemoraCoreWrapper::GetMachinePhysicalRAM>(env, "getMachinePhysicalRAM"),
          Method<&VemoraCoreWrapper::GetAvailableRAM>(env, "getAvailableRAM"),
          Method<&VemoraCoreWrapper::GetMachinePhysicalVRAM>(env, "getMachinePhysicalVRAM"),
          Method<&VemoraCoreWrapper::GetAvailableVRAM>(env, "getAvailableVRAM"),
          Method<&VemoraCoreWrapper::GetAvailableVRAMByDevice>(env, "getAvailableVRAMByDevice"),
          Method<&VemoraCoreWrapper::GetProcessUsedRAM>(env, "getProcessUsedRAM"),
          Method<&VemoraCoreWrapper::WillFailToAllocate>(env, "willFailToAllocate"),
          Method<&VemoraCoreWrapper::SurveyHardware>(env, "surveyHardware"),
          Method<&VemoraCoreWrapper::GetDeviceType>(env, "getDeviceType"),
      });

  // A second initialisation in the same environment replaces the reference
  // (the old one is deleted) instead of leaking it.
  if (AddonData* data = env.GetInstanceData<AddonData>()) {
    data->constructor.Reset(vemora_core, 1);
  } else {
    env.SetInstanceData(new AddonData{Napi::Persistent(vemora_core)});
  }
  exports.Set("VemoraCore", vemora_core);
  return exports;
}

VemoraCoreWrapper::VemoraCoreWrapper(const Napi::CallbackInfo& info)
    : Napi::ObjectWrap<VemoraCoreWrapper>(info) {
  Napi::HandleScope scope(info.Env());
}

Napi::Value VemoraCoreWrapper::GetCpuUsage(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  if (info.Length() < 2) return ThrowTypeError(env, "Two arguments expected for GetCpuUsage");
  if (!info[0].IsNumber() || !info[1].IsNumber()) {
    return ThrowTypeError(env, "Both GetCpuUsage arguments must be numbers!");
  }
  const std::int32_t pid = info[0].As<Napi::Number>().Int32Value();
  const std::int32_t second = info[1].As<Napi::Number>().Int32Value();
  float usage = 0;
  try {
    usage = vemora_utils::GetCpuUsage(pid, second);
  } catch (const std::runtime_error& e) {
    // Not measurable on this platform: tell the caller, keep the host alive.
    // Thrown straight into JavaScript, without a second C++ unwinding.
    Napi::Error::New(env, e.what()).ThrowAsJavaScriptException();
    return env.Null();
  }
  return Napi::Number::New(env, static_cast<double>(usage));
}

Napi::Value VemoraCoreWrapper::GetMachinePhysicalRAM(const Napi::CallbackInfo& info) {
  return BytesToJS(info.Env(), vemora_utils::MemoryObserver::getMachinePhysicalRAM());
}

Napi::Value VemoraCoreWrapper::GetAvailableRAM(const Napi::CallbackInfo& info) {
  return BytesToJS(info.Env(), memObserver.getAvailableRAM());
}

Napi::Value VemoraCoreWrapper::GetMachinePhysicalVRAM(const Napi::CallbackInfo& info) {
  return BytesToJS(info.Env(), vemora_utils::MemoryObserver::getMachinePhysicalVRAM());
}

Napi::Value VemoraCoreWrapper::GetAvailableVRAM(const Napi::CallbackInfo& info) {
  return BytesToJS(info.Env(), memObserver.getAvailableVRAM());
}

Napi::Value VemoraCoreWrapper::GetAvailableVRAMByDevice(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const auto [overall, devices] = vemora_utils::MemoryObserver::getAvailableVRAMByDevice();
  Napi::Array device_results = Napi::Array::New(env);
  std::uint32_t index = 0;
  for (const auto& device : devices) {
    Napi::Object element = Napi::Object::New(env);
    element.Set("result", ResultToJS(env, device.result));
    if (device.name) element.Set("name", Napi::String::New(env, *device.name));
    if (device.deviceId) element.Set("deviceId", Napi::Number::New(env, *device.deviceId));
    if (device.totalVramBytes) {
      element.Set("totalVramBytes",
                  Napi::Number::New(env, static_cast<double>(*device.totalVramBytes)));
    }
    if (device.freeVramBytes) {
      element.Set("freeVramBytes",
                  Napi::Number::New(env, static_cast<double>(*device.freeVramBytes)));
    }
    device_results.Set(index++, element);
  }
  Napi::Object report = Napi::Object::New(env);
  report.Set("result", ResultToJS(env, overall));
  report.Set("deviceResults", device_results);
  return report;
}

Napi::Value VemoraCoreWrapper::GetProcessUsedRAM(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  if (info.Length() != 1) return ThrowTypeError(env, "One argument expected for GetProcessUsedRAM");
  if (!info[0].IsNumber()) {
    return ThrowTypeError(env, "GetProcessUsedRAM PID must be a non-negative number!");
  }
  const std::int32_t pid = info[0].As<Napi::Number>().Int32Value();
  if (pid <= 0) return ThrowTypeError(env, "GetProcessUsedRAM PID must be a non-negative number!");
  return BytesToJS(env, vemora_utils::MemoryObserver::getProcessUsedRAM(pid));
}

Napi::Value VemoraCoreWrapper::WillFailToAllocate(const Napi::CallbackInfo& info) {
  // Node-API itself refuses a value that is not a number (a TypeError).
  const std::int64_t size = info[0].As<Napi::Number>().Int64Value();
  return Napi::Boolean::New(info.Env(), memObserver.willFailToAllocate(size));
}

Napi::Value VemoraCoreWrapper::SurveyHardware(const Napi::CallbackInfo& info) {
  const HardwareSurveyResult survey = vemora::system::SurveyHardware();
  return HardwareSurveyResultToJS(info.Env(), survey);
}

Napi::Value VemoraCoreWrapper::GetDeviceType(const Napi::CallbackInfo& info) {
  const std::string name = vemora::system::DeviceTypeToStr(vemora::system::GetDeviceType());
  return Napi::String::New(info.Env(), name);
}

namespace {

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  return VemoraCoreWrapper::Init(env, exports);
}

}  // namespace

NODE_API_MODULE(libvemora, Init)
