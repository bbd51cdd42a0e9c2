// A CommonJS consumer of the types: every static's result, the constants, the
// optional keys and the name unions, and the calls that must not compile.
import { expectAssignable, expectError, expectNotAssignable, expectType } from 'tsd';
import { VemoraCore, type GpuLiveMemory, type ResultCodeName } from 'libvemora';

expectType<[-1, -1]>([VemoraCore.CPU_USAGE_ERROR_CODE, VemoraCore.RAM_METER_ERROR_CODE]);
expectError((VemoraCore.RAM_METER_ERROR_CODE = -1));
expectType<[number, number, number, number, number, number, boolean, VemoraCore]>([VemoraCore.getMachinePhysicalRAM(),
  VemoraCore.getAvailableRAM(), VemoraCore.getMachinePhysicalVRAM(), VemoraCore.getAvailableVRAM(),
  VemoraCore.getProcessUsedRAM(1), VemoraCore.getCpuUsage(0, 1000), VemoraCore.willFailToAllocate(8e9), new VemoraCore()]);
expectType<'Laptop' | 'Desktop' | 'MacMini' | 'MacStudio' | 'Other'>(VemoraCore.getDeviceType());
expectError(VemoraCore.getProcessUsedRAM());
expectError(VemoraCore.getProcessUsedRAM('42'));
expectError(VemoraCore.willFailToAllocate(8n));
expectError(VemoraCore.getCpuUsage(1));
expectError(VemoraCore());
// @ts-expect-error the statics are not on instances
new VemoraCore().getAvailableRAM();

// Optional keys are absent, never undefined.
const { result, deviceResults: [device] } = VemoraCore.getAvailableVRAMByDevice();
expectType<'Unset' | 'Success' | 'Error' | 'NoDevicesFound' | 'InvalidDevice' | 'InitializationFailed' |
  'LibraryLoadFailed' | 'FunctionNotAvailable' | 'NotImplemented' | 'Unknown'>(result.code);
expectType<[string | undefined, number | undefined, number | undefined, number | undefined]>(
  [device?.name, device?.deviceId, device?.totalVramBytes, device?.freeVramBytes]);
expectAssignable<GpuLiveMemory>({ result });
expectNotAssignable<GpuLiveMemory>({ result, name: undefined });

const { gpuSurveyResult: { result: gpuResult, gpuInfo: [gpu] }, cpuSurveyResult: { cpuInfo: cpu } } = VemoraCore.surveyHardware();
expectType<[ResultCodeName, string, 'x86_64' | 'ARM64' | 'Unknown', ('AVX' | 'AVX2' | 'AdvSIMD')[]]>(
  [gpuResult.code, cpu.name, cpu.architecture, cpu.supportedInstructionSetExtensions]);
expectType<[string, number, number, number, 'Unknown' | 'Integrated' | 'Discrete', string]>([gpu!.name, gpu!.deviceId,
  gpu!.totalMemoryCapacityBytes, gpu!.dedicatedMemoryCapacityBytes, gpu!.integrationType, gpu!.detectionPlatformVersion]);
expectType<'Unknown' | 'ROCm' | 'CUDA' | 'OpenCl' | 'Metal' | 'DirectML' | 'Vulkan' | 'OpenVINO'>(gpu!.detectionPlatform);
expectType<[string | undefined, string | undefined, string | undefined]>(
  [gpu!.otherInfo.metalGpuFamilyNumeric, gpu!.otherInfo.osProductVersion, gpu!.otherInfo['anything else']]);
